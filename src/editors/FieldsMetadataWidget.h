#pragma once

#include "MetadataImpl.h"
#include "MetadataWidget.h"

#include <Imath/ImathEuler.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <QLineEdit>

#include <array>
#include <memory>

class QValidator;

// How a value of type T spreads over text fields: how many, in how many
// columns, which number each field holds, and how a field's text is written
// and read. Numbers are written with 6 significant digits.
template <typename T>
struct FieldLayout;

// A value of one or more numbers in line edits with one shared validator:
// the widget of int, double, vector, Euler, quaternion and matrix values.
template <typename T>
class FieldsMetadataWidget : public MetadataWidget {
public:
    using Layout = FieldLayout<T>;

    explicit FieldsMetadataWidget(const QString& name, QWidget* parent = nullptr);

    T value() const;
    void setValue(const T& value);

    QString valueAsString() const override;
    unsigned int typeId() const override { return ZentoCore::MetadataImpl<T>::staticTypeId(); }
    bool setMetadata(const ZentoCore::Metadata& value) override;
    std::shared_ptr<ZentoCore::Metadata> metadata() const override;

    std::array<QLineEdit*, Layout::kCount> fields{};
};

template <>
struct FieldLayout<int> {
    static constexpr int kCount = 1;
    static constexpr int kColumns = 1;
    static QValidator* validator(QObject* parent);
    static QString text(const int& value, int field);
    static void read(int& value, int field, const QString& text);
};

template <>
struct FieldLayout<double> {
    static constexpr int kCount = 1;
    static constexpr int kColumns = 1;
    static QValidator* validator(QObject* parent);
    static QString text(const double& value, int field);
    static void read(double& value, int field, const QString& text);
};

template <>
struct FieldLayout<Imath::V2d> {
    static constexpr int kCount = 2;
    static constexpr int kColumns = 2;
    static QValidator* validator(QObject* parent);
    static QString text(const Imath::V2d& value, int field);
    static void read(Imath::V2d& value, int field, const QString& text);
};

template <>
struct FieldLayout<Imath::V3d> {
    static constexpr int kCount = 3;
    static constexpr int kColumns = 3;
    static QValidator* validator(QObject* parent);
    static QString text(const Imath::V3d& value, int field);
    static void read(Imath::V3d& value, int field, const QString& text);
};

// In degrees; read back in the default order XYZ, since no field holds the order.
template <>
struct FieldLayout<Imath::Eulerd> {
    static constexpr int kCount = 3;
    static constexpr int kColumns = 3;
    static QValidator* validator(QObject* parent);
    static QString text(const Imath::Eulerd& value, int field);
    static void read(Imath::Eulerd& value, int field, const QString& text);
};

// x, y, z, then the real part r.
template <>
struct FieldLayout<Imath::Quatd> {
    static constexpr int kCount = 4;
    static constexpr int kColumns = 4;
    static QValidator* validator(QObject* parent);
    static QString text(const Imath::Quatd& value, int field);
    static void read(Imath::Quatd& value, int field, const QString& text);
};

// Row by row in a 4 by 4 grid.
template <>
struct FieldLayout<Imath::M44d> {
    static constexpr int kCount = 16;
    static constexpr int kColumns = 4;
    static QValidator* validator(QObject* parent);
    static QString text(const Imath::M44d& value, int field);
    static void read(Imath::M44d& value, int field, const QString& text);
};

using IntMetadataWidget = FieldsMetadataWidget<int>;
using DoubleMetadataWidget = FieldsMetadataWidget<double>;
using Vector2MetadataWidget = FieldsMetadataWidget<Imath::V2d>;
using Vector3MetadataWidget = FieldsMetadataWidget<Imath::V3d>;
using EulerMetadataWidget = FieldsMetadataWidget<Imath::Eulerd>;
using QuaternionMetadataWidget = FieldsMetadataWidget<Imath::Quatd>;
using MatrixMetadataWidget = FieldsMetadataWidget<Imath::M44d>;

extern template class FieldsMetadataWidget<int>;
extern template class FieldsMetadataWidget<double>;
extern template class FieldsMetadataWidget<Imath::V2d>;
extern template class FieldsMetadataWidget<Imath::V3d>;
extern template class FieldsMetadataWidget<Imath::Eulerd>;
extern template class FieldsMetadataWidget<Imath::Quatd>;
extern template class FieldsMetadataWidget<Imath::M44d>;
