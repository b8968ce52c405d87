#pragma once

#include "MapMetadata.h"

#include <Imath/ImathEuler.h>
#include <Imath/ImathVec.h>

#include <QDockWidget>

#include <array>
#include <vector>

class BaseNode;
class MetadataWidget;
class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QGridLayout;
class QGroupBox;
class QLineEdit;
class QScrollArea;
class QVBoxLayout;

// The "Attributes" dock: the name, state flags and transform of one node and
// a row for each attribute of its display list. It changes no node itself:
// an edit raises a signal, and the main window reads the editor's contents
// into a command.
class AttributeEditor : public QDockWidget {
    Q_OBJECT

public:
    explicit AttributeEditor(QWidget* parent = nullptr);

    // Shows the node, its rows built anew.
    void setNode(const BaseNode& node);
    // Shows the node's present transform, and its "dimension" row, without a rebuild.
    void refreshTransform(const BaseNode& node);
    // Nothing selected: the groups disabled, the transform at rest.
    void clear();

    Imath::V3d translate() const;
    Imath::V3d scale() const;
    Imath::V3d pivot() const;
    // In radians, in the order the combo box shows.
    Imath::Eulerd rotate() const;
    bool isVisibleChecked() const;
    bool isActiveChecked() const;
    // One entry for each row, under its key, as the row shows it.
    ZentoCore::MapMetadata attributes() const;

    QLineEdit* nameWidget = nullptr;
    QCheckBox* visibleBox = nullptr;
    QCheckBox* activeBox = nullptr;
    QGroupBox* transformGroup = nullptr;
    QGroupBox* attributesGroup = nullptr;
    QScrollArea* scrollArea = nullptr;
    // Translate, scale, rotate (degrees) and pivot, x, y and z each.
    std::array<QDoubleSpinBox*, 3> translateBoxes{};
    std::array<QDoubleSpinBox*, 3> scaleBoxes{};
    std::array<QDoubleSpinBox*, 3> rotateBoxes{};
    std::array<QDoubleSpinBox*, 3> pivotBoxes{};
    QComboBox* rotateOrderBox = nullptr;

    // The container of the present rows; the last rebuild's only.
    std::vector<QWidget*> attributeContainers;
    // The value widget of each row, in row order; owned by their container.
    std::vector<MetadataWidget*> metadataWidgets;
    // Set while the editor writes its own widgets, so that no command comes of it.
    bool updating = false;

signals:
    void updateAttributes();
    void updateTransform();
    void updateState();

public slots:
    void transformUpdated();
    void stateUpdated();
    void attributesUpdated();

private:
    void setupUi();
    void setTransform(const BaseNode& node);
    // The rows of the node's display list into a new container.
    void buildRows(const BaseNode& node);
    void removeRows();

    QVBoxLayout* mAttributesLayout = nullptr;
};
