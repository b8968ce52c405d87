#include "Outliner.h"

#include "StringUtils.h"

#include <QHeaderView>
#include <QKeyEvent>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace {

const QColor kPlainBackground(55, 55, 55, 255);
const QColor kAncestorBackground(65, 77, 90, 255);
const QColor kSelectedBackground(82, 133, 166, 255);
const QColor kShownText(255, 255, 255, 255);
const QColor kHiddenText(110, 110, 110, 255);

std::vector<std::string> pathParts(const std::string& path)
{
    std::vector<std::string> pieces;
    ZentoUtils::splitString(path, '/', pieces);
    pieces.erase(std::remove(pieces.begin(), pieces.end(), std::string()), pieces.end());
    return pieces;
}

QTreeWidgetItem* childWithText(QTreeWidgetItem* row, const QString& text)
{
    for (int i = 0; i < row->childCount(); ++i)
        if (row->child(i)->text(0) == text)
            return row->child(i);
    return nullptr;
}

void collectRows(QTreeWidgetItem* row, std::vector<QTreeWidgetItem*>& rows)
{
    for (int i = 0; i < row->childCount(); ++i) {
        rows.push_back(row->child(i));
        collectRows(row->child(i), rows);
    }
}

} // namespace

Outliner::Outliner(QWidget* parent) : QDockWidget(parent)
{
    auto* widget = new QWidget(this);
    setupUi(widget);
    setWidget(widget);
    setWindowTitle("Hierarchy");
    setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    connect(treeWidget, SIGNAL(itemSelectionChanged()), this, SLOT(selectionChanged()));
    treeWidget->installEventFilter(this);
}

bool Outliner::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == treeWidget && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        const bool typed = !key->text().isEmpty() && key->text().at(0).isLetterOrNumber();
        if (typed && !(key->modifiers() & (Qt::ControlModifier | Qt::AltModifier))) {
            // Ignored, the press travels on to the window like any unused key.
            event->ignore();
            return true;
        }
    }
    return QDockWidget::eventFilter(watched, event);
}

void Outliner::setupUi(QWidget* widget)
{
    if (widget->objectName().isEmpty())
        widget->setObjectName("Outliner");
    widget->resize(200, 400);
    verticalLayout = new QVBoxLayout(widget);
    verticalLayout->setSpacing(0);
    verticalLayout->setObjectName("verticalLayout");
    verticalLayout->setContentsMargins(0, 0, 0, 0);
    treeWidget = new QTreeWidget(widget);
    treeWidget->headerItem()->setText(0, "1");
    treeWidget->setObjectName("treeWidget");
    treeWidget->setSelectionMode(QAbstractItemView::ExtendedSelection);
    treeWidget->header()->setVisible(false);
    treeWidget->header()->setMinimumSectionSize(20);
    treeWidget->header()->setDefaultSectionSize(80);
    verticalLayout->addWidget(treeWidget);
    widget->setWindowTitle("Outliner");
    QMetaObject::connectSlotsByName(widget);
}

QTreeWidgetItem* Outliner::findRow(const std::string& path) const
{
    const std::vector<std::string> parts = pathParts(path);
    if (parts.empty())
        return nullptr;
    QTreeWidgetItem* row = treeWidget->invisibleRootItem();
    for (const std::string& part : parts) {
        row = childWithText(row, QString::fromStdString(part));
        if (!row)
            return nullptr;
    }
    return row;
}

void Outliner::addNodes(const std::vector<std::string>& paths)
{
    names.insert(names.end(), paths.begin(), paths.end());
    for (const std::string& path : paths) {
        QTreeWidgetItem* row = treeWidget->invisibleRootItem();
        for (const std::string& part : pathParts(path)) {
            const QString text = QString::fromStdString(part);
            QTreeWidgetItem* child = childWithText(row, text);
            if (!child) {
                child = new QTreeWidgetItem(QStringList(text));
                row->addChild(child);
            }
            row = child;
        }
    }
}

void Outliner::removeNodes(const std::vector<std::string>& paths)
{
    mSuppressSelectionSignal = true;
    std::vector<std::string> sorted = paths;
    std::sort(sorted.begin(), sorted.end());
    // From the last to the first, so that children go before their parents.
    for (auto path = sorted.rbegin(); path != sorted.rend(); ++path) {
        QTreeWidgetItem* row = findRow(*path);
        if (!row)
            continue;
        if (QTreeWidgetItem* parentRow = row->parent())
            delete parentRow->takeChild(parentRow->indexOfChild(row));
        else
            delete row;
    }
    for (auto path = sorted.rbegin(); path != sorted.rend(); ++path) {
        const auto found = std::find(names.begin(), names.end(), *path);
        if (found != names.end())
            names.erase(found);
    }
    mSuppressSelectionSignal = false;
}

void Outliner::selectNodes(const std::vector<std::string>& paths)
{
    mSuppressSelectionSignal = true;
    treeWidget->clearSelection();
    for (const std::string& path : paths)
        if (QTreeWidgetItem* row = findRow(path))
            row->setSelected(true);
    mSuppressSelectionSignal = false;
}

void Outliner::selectionChanged()
{
    if (!mSuppressSelectionSignal)
        emit selectionUpdated();

    std::vector<QTreeWidgetItem*> rows;
    collectRows(treeWidget->invisibleRootItem(), rows);
    for (QTreeWidgetItem* row : rows)
        row->setBackground(0, kPlainBackground);
    const QList<QTreeWidgetItem*> selected = treeWidget->selectedItems();
    // Ancestors first, so that a selected ancestor of a selected row keeps the selected colour.
    for (QTreeWidgetItem* row : selected)
        for (QTreeWidgetItem* ancestor = row->parent(); ancestor; ancestor = ancestor->parent())
            ancestor->setBackground(0, kAncestorBackground);
    for (QTreeWidgetItem* row : selected)
        row->setBackground(0, kSelectedBackground);
}

std::vector<std::string> Outliner::selectedNames() const
{
    std::vector<std::string> result;
    for (const QTreeWidgetItem* row : treeWidget->selectedItems()) {
        QString path = "/" + row->text(0);
        for (const QTreeWidgetItem* parentRow = row->parent(); parentRow && !parentRow->text(0).isEmpty();
             parentRow = parentRow->parent())
            path = "/" + parentRow->text(0) + path;
        result.push_back(path.toStdString());
    }
    return result;
}

void Outliner::markHidden(const std::vector<std::string>& paths)
{
    std::vector<QTreeWidgetItem*> rows;
    collectRows(treeWidget->invisibleRootItem(), rows);
    for (QTreeWidgetItem* row : rows)
        row->setForeground(0, kShownText);
    for (const std::string& path : paths)
        if (QTreeWidgetItem* row = findRow(path))
            row->setForeground(0, kHiddenText);
}
