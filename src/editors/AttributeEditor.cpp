#include "AttributeEditor.h"

#include "BaseNode.h"
#include "MetadataWidget.h"
#include "MetadataWidgetFactory.h"
#include "TypedArrayMetadata.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFrame>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QScrollArea>
#include <QScrollBar>
#include <QVBoxLayout>

#include <cmath>

namespace {

constexpr double kDegrees = 180.0 / M_PI;

// The rotation orders in the combo box's order.
const Imath::Eulerd::Order kOrders[] = {Imath::Eulerd::XYZ, Imath::Eulerd::XZY, Imath::Eulerd::YZX,
                                        Imath::Eulerd::YXZ, Imath::Eulerd::ZXY, Imath::Eulerd::ZYX};
const char* const kOrderNames[] = {"XYZ", "XZY", "YZX", "YXZ", "ZXY", "ZYX"};
constexpr int kOrderCount = 6;

QDoubleSpinBox* makeSpinBox(QWidget* parent, const QString& name)
{
    auto* box = new QDoubleSpinBox(parent);
    box->setObjectName(name);
    box->setAccessibleName(name);
    box->setButtonSymbols(QAbstractSpinBox::NoButtons);
    // A value is taken on Enter or on leaving the field, not at every key.
    box->setKeyboardTracking(false);
    box->setDecimals(4);
    box->setMinimum(-1e16);
    box->setMaximum(1e17);
    // The range would size the box for eighteen digits; the dock shares its width instead.
    box->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    box->setMinimumWidth(48);
    return box;
}

Imath::V3d read(const std::array<QDoubleSpinBox*, 3>& boxes)
{
    return Imath::V3d(boxes[0]->value(), boxes[1]->value(), boxes[2]->value());
}

void write(const std::array<QDoubleSpinBox*, 3>& boxes, const Imath::V3d& value)
{
    for (int axis = 0; axis < 3; ++axis)
        boxes[size_t(axis)]->setValue(value[axis]);
}

// The "enum" option list of the key, when its hints have one.
bool enumOptions(const BaseNode& node, const std::string& key, std::vector<std::string>& options)
{
    const auto hints = node.attributeHints.typedEntryAs<ZentoCore::MapMetadata>(key);
    const auto list = hints ? hints->typedEntryAs<ZentoCore::TypedArrayMetadata<std::string>>("enum") : nullptr;
    if (list)
        options = list->get();
    return list != nullptr;
}

// The display list, or every key in order when the node has none.
std::vector<std::string> rowKeys(const BaseNode& node)
{
    const auto list = node.attributeHints.typedEntryAs<ZentoCore::TypedArrayMetadata<std::string>>("__list__");
    return list ? list->get() : node.attributes.getKeys();
}

} // namespace

AttributeEditor::AttributeEditor(QWidget* parent) : QDockWidget(parent)
{
    setupUi();
    for (const auto* boxes : {&translateBoxes, &scaleBoxes, &rotateBoxes, &pivotBoxes})
        for (QDoubleSpinBox* box : *boxes)
            connect(box, SIGNAL(valueChanged(double)), this, SLOT(transformUpdated()));
    // Twice: one edit of pivot z gives two transform commands, as it always has.
    connect(pivotBoxes[2], SIGNAL(valueChanged(double)), this, SLOT(transformUpdated()));
    connect(rotateOrderBox, SIGNAL(currentIndexChanged(int)), this, SLOT(transformUpdated()));
    connect(visibleBox, SIGNAL(stateChanged(int)), this, SLOT(stateUpdated()));
    connect(activeBox, SIGNAL(stateChanged(int)), this, SLOT(stateUpdated()));
}

void AttributeEditor::setupUi()
{
    setObjectName("AttributeEditor");
    setWindowTitle("Attributes");
    setAccessibleName("Attributes");
    setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    auto* panel = new QWidget(this);
    auto* outer = new QVBoxLayout(panel);
    outer->setObjectName("verticalLayout_2");

    auto* header = new QGridLayout();
    header->setObjectName("gridLayout_2");
    nameWidget = new QLineEdit(panel);
    nameWidget->setObjectName("nameWidget");
    nameWidget->setAccessibleName("Name");
    nameWidget->setReadOnly(true);
    visibleBox = new QCheckBox(panel);
    visibleBox->setObjectName("visibleBox");
    visibleBox->setAccessibleName("Visible");
    visibleBox->setChecked(true);
    activeBox = new QCheckBox(panel);
    activeBox->setObjectName("activeBox");
    activeBox->setAccessibleName("Active");
    activeBox->setChecked(true);
    header->addWidget(new QLabel("Name", panel), 0, 0);
    header->addWidget(nameWidget, 0, 1);
    header->addWidget(new QLabel("Visible", panel), 1, 0);
    header->addWidget(visibleBox, 1, 1);
    header->addWidget(new QLabel("Active", panel), 2, 0);
    header->addWidget(activeBox, 2, 1);
    outer->addLayout(header);

    scrollArea = new QScrollArea(panel);
    scrollArea->setObjectName("scrollArea");
    scrollArea->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    scrollArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scrollArea->setWidgetResizable(true);
    auto* contents = new QWidget(scrollArea);
    contents->setObjectName("scrollAreaWidgetContents");
    auto* column = new QVBoxLayout(contents);
    column->setObjectName("verticalLayout");

    transformGroup = new QGroupBox("Transform", contents);
    transformGroup->setObjectName("transformGroup");
    auto* grid = new QGridLayout(transformGroup);
    grid->setObjectName("gridLayout");
    const struct {
        const char* label;
        std::array<QDoubleSpinBox*, 3>* boxes;
    } rows[] = {{"Translate", &translateBoxes}, {"Scale", &scaleBoxes}, {"Rotate", &rotateBoxes}, {"Pivot", &pivotBoxes}};
    for (int row = 0; row < 4; ++row) {
        // Rotate Order takes row 3, between rotate and pivot.
        const int gridRow = row < 3 ? row : 4;
        grid->addWidget(new QLabel(rows[row].label, transformGroup), gridRow, 0);
        for (int axis = 0; axis < 3; ++axis) {
            QDoubleSpinBox* box = makeSpinBox(transformGroup, QString(rows[row].label) + " " + "xyz"[axis]);
            (*rows[row].boxes)[size_t(axis)] = box;
            grid->addWidget(box, gridRow, axis + 1);
        }
    }
    rotateOrderBox = new QComboBox(transformGroup);
    rotateOrderBox->setObjectName("rotateOrder");
    rotateOrderBox->setAccessibleName("Rotate Order");
    for (const char* order : kOrderNames)
        rotateOrderBox->addItem(order);
    grid->addWidget(new QLabel("Rotate Order", transformGroup), 3, 0);
    grid->addWidget(rotateOrderBox, 3, 1);

    attributesGroup = new QGroupBox("Attributes", contents);
    attributesGroup->setObjectName("attributesGroup");
    mAttributesLayout = new QVBoxLayout(attributesGroup);
    column->addWidget(transformGroup);
    column->addWidget(attributesGroup);
    column->addStretch();
    scrollArea->setWidget(contents);
    outer->addWidget(scrollArea);
    setWidget(panel);
    transformGroup->setEnabled(false);
    attributesGroup->setEnabled(false);
}

void AttributeEditor::setTransform(const BaseNode& node)
{
    write(translateBoxes, node.translation);
    write(scaleBoxes, node.scale);
    write(rotateBoxes, node.rotation.toXYZVector() * kDegrees);
    write(pivotBoxes, node.pivot);
    for (int index = 0; index < kOrderCount; ++index)
        if (node.rotation.order() == kOrders[index])
            rotateOrderBox->setCurrentIndex(index);
}

void AttributeEditor::setNode(const BaseNode& node)
{
    updating = true;
    transformGroup->setEnabled(true);
    attributesGroup->setEnabled(true);
    nameWidget->setText(QString::fromStdString(node.path.name()));
    activeBox->setChecked(node.active);
    visibleBox->setChecked(node.visible);
    setTransform(node);
    removeRows();
    buildRows(node);
    // The rows scroll up and down but never sideways: the dock keeps their width.
    scrollArea->setMinimumWidth(scrollArea->widget()->minimumSizeHint().width() +
                                scrollArea->verticalScrollBar()->sizeHint().width() + 2 * scrollArea->frameWidth());
    updating = false;
}

void AttributeEditor::removeRows()
{
    // The layout's items first, then the containers they held.
    while (QLayoutItem* item = mAttributesLayout->takeAt(0))
        delete item;
    for (QWidget* container : attributeContainers) {
        container->setParent(nullptr);
        delete container;
    }
    attributeContainers.clear();
    metadataWidgets.clear();
}

void AttributeEditor::buildRows(const BaseNode& node)
{
    auto* container = new QWidget();
    auto* grid = new QGridLayout(container);
    grid->setContentsMargins(0, 0, 0, 0);
    int row = 0;
    for (const std::string& key : rowKeys(node)) {
        const std::shared_ptr<ZentoCore::Metadata> value = node.attributes.getEntry(key);
        if (!value) {
            if (key.size() < 2 || key[0] != '@')
                continue;
            auto* line = new QFrame(container);
            line->setFrameShape(QFrame::HLine);
            line->setFrameShadow(QFrame::Sunken);
            grid->addWidget(line, row++, 0, 1, 2);
            grid->addWidget(new QLabel("<b>" + QString::fromStdString(key.substr(1)) + "</b>", container), row++, 0);
            continue;
        }
        std::vector<std::string> options;
        const bool isEnum = enumOptions(node, key, options);
        MetadataWidget* widget = makeMetadataWidget(value->typeId(), QString::fromStdString(key), isEnum ? &options : nullptr);
        if (!widget)
            continue;
        widget->setParent(container);
        widget->updating = true;
        widget->setMetadata(*value);
        widget->updating = false;
        grid->addWidget(new QLabel(QString::fromStdString(key), container), row, 0);
        grid->addWidget(widget, row++, 1);
        connect(widget, SIGNAL(metadataUpdated()), this, SLOT(attributesUpdated()));
        metadataWidgets.push_back(widget);
    }
    if (row == 0) {
        delete container;
        return;
    }
    grid->addItem(new QSpacerItem(20, 20, QSizePolicy::Minimum, QSizePolicy::Expanding), row, 0, 1, 1);
    mAttributesLayout->addWidget(container);
    // Shown now rather than on the next turn of the event loop, so that its size counts at once.
    container->show();
    attributeContainers.push_back(container);
}

void AttributeEditor::refreshTransform(const BaseNode& node)
{
    updating = true;
    setTransform(node);
    if (const auto dimension = node.attributes.typedEntry<Imath::V3d>("dimension"))
        for (MetadataWidget* widget : metadataWidgets)
            if (widget->name == "dimension")
                widget->setMetadata(*dimension);
    updating = false;
}

void AttributeEditor::clear()
{
    updating = true;
    transformGroup->setEnabled(false);
    attributesGroup->setEnabled(false);
    nameWidget->setText(QString());
    write(translateBoxes, Imath::V3d(0.0));
    write(scaleBoxes, Imath::V3d(1.0));
    write(rotateBoxes, Imath::V3d(0.0));
    write(pivotBoxes, Imath::V3d(0.0));
    rotateOrderBox->setCurrentIndex(0);
    updating = false;
}

Imath::V3d AttributeEditor::translate() const
{
    return read(translateBoxes);
}

Imath::V3d AttributeEditor::scale() const
{
    return read(scaleBoxes);
}

Imath::V3d AttributeEditor::pivot() const
{
    return read(pivotBoxes);
}

Imath::Eulerd AttributeEditor::rotate() const
{
    const Imath::V3d angles = read(rotateBoxes) / kDegrees;
    const int index = rotateOrderBox->currentIndex();
    return Imath::Eulerd(angles, index >= 0 && index < kOrderCount ? kOrders[index] : Imath::Eulerd::XYZ,
                         Imath::Eulerd::XYZLayout);
}

bool AttributeEditor::isVisibleChecked() const
{
    return visibleBox->isChecked();
}

bool AttributeEditor::isActiveChecked() const
{
    return activeBox->isChecked();
}

ZentoCore::MapMetadata AttributeEditor::attributes() const
{
    ZentoCore::MapMetadata values;
    for (const MetadataWidget* widget : metadataWidgets)
        values.insertEntry(widget->name.toStdString(), widget->metadata());
    return values;
}

void AttributeEditor::transformUpdated()
{
    if (!updating)
        emit updateTransform();
}

void AttributeEditor::stateUpdated()
{
    if (!updating)
        emit updateState();
}

void AttributeEditor::attributesUpdated()
{
    if (!updating)
        emit updateAttributes();
}
