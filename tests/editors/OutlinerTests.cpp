#include "GuiTestSupport.h"
#include "Outliner.h"

#include <QSignalSpy>
#include <QTreeWidget>

#include <gtest/gtest.h>

namespace {

QTreeWidgetItem* row(const Outliner& outliner, const QString& top, const QString& child = QString())
{
    QTreeWidgetItem* parent = nullptr;
    for (int i = 0; i < outliner.treeWidget->topLevelItemCount(); ++i)
        if (outliner.treeWidget->topLevelItem(i)->text(0) == top)
            parent = outliner.treeWidget->topLevelItem(i);
    if (!parent || child.isEmpty())
        return parent;
    for (int i = 0; i < parent->childCount(); ++i)
        if (parent->child(i)->text(0) == child)
            return parent->child(i);
    return nullptr;
}

const QColor kPlain(55, 55, 55);
const QColor kAncestor(65, 77, 90);
const QColor kSelected(82, 133, 166);

} // namespace

TEST(Outliner, BuildsRowsForEveryPathComponentInOrderOfArrival)
{
    guiApplication();
    Outliner outliner;
    outliner.addNodes({"/Skeleton/Hips", "/Solver", "/Skeleton/Hips/Spine", "/Skeleton"});
    outliner.addNodes({"/Skeleton/Hips"});

    // Ancestor rows are made on the way; a second add of a path makes no second row.
    ASSERT_EQ(outliner.treeWidget->topLevelItemCount(), 2);
    EXPECT_EQ(outliner.treeWidget->topLevelItem(0)->text(0), "Skeleton");
    EXPECT_EQ(outliner.treeWidget->topLevelItem(1)->text(0), "Solver");
    QTreeWidgetItem* hips = row(outliner, "Skeleton", "Hips");
    ASSERT_NE(hips, nullptr);
    EXPECT_EQ(row(outliner, "Skeleton")->childCount(), 1);
    ASSERT_EQ(hips->childCount(), 1);
    EXPECT_EQ(hips->child(0)->text(0), "Spine");
    EXPECT_EQ(outliner.names, (std::vector<std::string>{"/Skeleton/Hips", "/Solver", "/Skeleton/Hips/Spine",
                                                         "/Skeleton", "/Skeleton/Hips"}));
}

TEST(Outliner, SelectedNamesGiveBackTheWholePaths)
{
    guiApplication();
    Outliner outliner;
    // A dock that cannot be closed, whose rows the user may select several at a time.
    EXPECT_EQ(outliner.features(), QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    EXPECT_EQ(outliner.treeWidget->selectionMode(), QAbstractItemView::ExtendedSelection);
    outliner.addNodes({"/Skeleton/Hips/Spine", "/Solver"});
    QSignalSpy emitted(&outliner, SIGNAL(selectionUpdated()));

    // As a user's click: the signal goes out.
    row(outliner, "Skeleton", "Hips")->child(0)->setSelected(true);
    EXPECT_EQ(emitted.count(), 1);
    EXPECT_EQ(outliner.selectedNames(), std::vector<std::string>{"/Skeleton/Hips/Spine"});

    // A row made only for structure gives a path that the scene may not know.
    outliner.treeWidget->clearSelection();
    row(outliner, "Skeleton")->setSelected(true);
    EXPECT_EQ(outliner.selectedNames(), std::vector<std::string>{"/Skeleton"});
}

TEST(Outliner, SelectNodesIsQuietSkipsUnknownPathsAndColoursRows)
{
    guiApplication();
    Outliner outliner;
    outliner.addNodes({"/A/B/C", "/A/D"});
    QSignalSpy emitted(&outliner, SIGNAL(selectionUpdated()));

    outliner.selectNodes({"/A/B/C", "/Nowhere", "/A/B"});
    EXPECT_EQ(emitted.count(), 0);
    std::vector<std::string> selected = outliner.selectedNames();
    std::sort(selected.begin(), selected.end());
    EXPECT_EQ(selected, (std::vector<std::string>{"/A/B", "/A/B/C"}));
    // A row that is selected and the ancestor of a selected row stays in the selected colour.
    QTreeWidgetItem* b = row(outliner, "A", "B");
    EXPECT_EQ(b->background(0).color(), kSelected);
    EXPECT_EQ(b->child(0)->background(0).color(), kSelected);
    EXPECT_EQ(row(outliner, "A")->background(0).color(), kAncestor);
    EXPECT_EQ(row(outliner, "A", "D")->background(0).color(), kPlain);

    outliner.selectNodes({});
    EXPECT_EQ(emitted.count(), 0);
    EXPECT_TRUE(outliner.selectedNames().empty());
    EXPECT_EQ(b->background(0).color(), kPlain);
    EXPECT_EQ(row(outliner, "A")->background(0).color(), kPlain);
}

TEST(Outliner, RemovingAPathAndOneBelowItRemovesBothRowsAndNames)
{
    guiApplication();
    Outliner outliner;
    outliner.addNodes({"/A", "/A/B", "/A/B/C", "/E", "/A/B"});
    outliner.selectNodes({"/A/B/C"});
    QSignalSpy emitted(&outliner, SIGNAL(selectionUpdated()));

    outliner.removeNodes({"/A/B", "/A/B/C", "/Missing"});
    EXPECT_EQ(emitted.count(), 0);
    EXPECT_EQ(row(outliner, "A", "B"), nullptr);
    ASSERT_NE(row(outliner, "A"), nullptr);
    EXPECT_EQ(row(outliner, "A")->childCount(), 0);
    // The first entry of each removed path goes; the second "/A/B" stays.
    EXPECT_EQ(outliner.names, (std::vector<std::string>{"/A", "/E", "/A/B"}));

    // A top-level row removes the rows below it, listed or not.
    outliner.addNodes({"/E/F"});
    outliner.removeNodes({"/E"});
    EXPECT_EQ(row(outliner, "E"), nullptr);
    EXPECT_EQ(outliner.treeWidget->topLevelItemCount(), 1);
}

TEST(Outliner, MarkHiddenGreysOnlyTheNamedRows)
{
    guiApplication();
    Outliner outliner;
    outliner.addNodes({"/A/B", "/A/B/C", "/D"});
    outliner.markHidden({"/A/B", "/Unknown"});
    QTreeWidgetItem* b = row(outliner, "A", "B");
    EXPECT_EQ(b->foreground(0).color(), QColor(110, 110, 110));
    EXPECT_EQ(b->child(0)->foreground(0).color(), QColor(255, 255, 255));
    EXPECT_EQ(row(outliner, "D")->foreground(0).color(), QColor(255, 255, 255));

    outliner.markHidden({"/D"});
    EXPECT_EQ(b->foreground(0).color(), QColor(255, 255, 255));
    EXPECT_EQ(row(outliner, "D")->foreground(0).color(), QColor(110, 110, 110));
}
