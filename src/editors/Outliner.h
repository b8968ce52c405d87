#pragma once

#include <QDockWidget>

#include <string>
#include <vector>

class QTreeWidget;
class QTreeWidgetItem;
class QVBoxLayout;

// The "Hierarchy" dock: the scene as a tree of path components. It is made
// from path strings alone and never looks at the scene; the main window tells
// it what to add, remove, select and grey out.
class Outliner : public QDockWidget {
    Q_OBJECT

public:
    explicit Outliner(QWidget* parent = nullptr);

    void addNodes(const std::vector<std::string>& paths);
    // Deleting a row deletes the rows below it as well.
    void removeNodes(const std::vector<std::string>& paths);
    // Selects the rows of the paths that have one; emits nothing.
    void selectNodes(const std::vector<std::string>& paths);
    std::vector<std::string> selectedNames() const;
    // Greys out exactly the named rows.
    void markHidden(const std::vector<std::string>& paths);

    QVBoxLayout* verticalLayout = nullptr;
    QTreeWidget* treeWidget = nullptr;
    // Every path added and not removed, in the order of adding.
    std::vector<std::string> names;

    // Keeps letters and digits from the tree's type-to-search: they are the
    // window's shortcuts, which act when the key is let go.
    bool eventFilter(QObject* watched, QEvent* event) override;

signals:
    void selectionUpdated();

private slots:
    void selectionChanged();

private:
    void setupUi(QWidget* widget);
    // Null when some part of the path has no row, or the path has no parts.
    QTreeWidgetItem* findRow(const std::string& path) const;

    bool mSuppressSelectionSignal = false;
};
