#include "FieldsMetadataWidget.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QRegExpValidator>
#include <QStringList>

#include <cmath>

namespace {

// Plain decimals: no exponent, so that a typed value is what the row shows.
QValidator* numberValidator(QObject* parent)
{
    return new QRegExpValidator(QRegExp("[+-]?\\d*\\.?\\d+"), parent);
}

QString numberText(double value)
{
    return QString::number(value, 'g', 6);
}

double number(const QString& text)
{
    return text.toDouble();
}

constexpr double kDegrees = 180.0 / M_PI;

} // namespace

QValidator* FieldLayout<int>::validator(QObject* parent)
{
    return new QIntValidator(parent);
}
QString FieldLayout<int>::text(const int& value, int)
{
    return QString::number(value, 10);
}
void FieldLayout<int>::read(int& value, int, const QString& text)
{
    value = text.toInt(nullptr, 10);
}

QValidator* FieldLayout<double>::validator(QObject* parent)
{
    return numberValidator(parent);
}
QString FieldLayout<double>::text(const double& value, int)
{
    return numberText(value);
}
void FieldLayout<double>::read(double& value, int, const QString& text)
{
    value = number(text);
}

QValidator* FieldLayout<Imath::V2d>::validator(QObject* parent)
{
    return numberValidator(parent);
}
QString FieldLayout<Imath::V2d>::text(const Imath::V2d& value, int field)
{
    return numberText(value[field]);
}
void FieldLayout<Imath::V2d>::read(Imath::V2d& value, int field, const QString& text)
{
    value[field] = number(text);
}

QValidator* FieldLayout<Imath::V3d>::validator(QObject* parent)
{
    return numberValidator(parent);
}
QString FieldLayout<Imath::V3d>::text(const Imath::V3d& value, int field)
{
    return numberText(value[field]);
}
void FieldLayout<Imath::V3d>::read(Imath::V3d& value, int field, const QString& text)
{
    value[field] = number(text);
}

QValidator* FieldLayout<Imath::Eulerd>::validator(QObject* parent)
{
    return numberValidator(parent);
}
QString FieldLayout<Imath::Eulerd>::text(const Imath::Eulerd& value, int field)
{
    return numberText(value[field] * kDegrees);
}
void FieldLayout<Imath::Eulerd>::read(Imath::Eulerd& value, int field, const QString& text)
{
    value[field] = number(text) / kDegrees;
}

QValidator* FieldLayout<Imath::Quatd>::validator(QObject* parent)
{
    return numberValidator(parent);
}
QString FieldLayout<Imath::Quatd>::text(const Imath::Quatd& value, int field)
{
    return numberText(field < 3 ? value.v[field] : value.r);
}
void FieldLayout<Imath::Quatd>::read(Imath::Quatd& value, int field, const QString& text)
{
    (field < 3 ? value.v[field] : value.r) = number(text);
}

QValidator* FieldLayout<Imath::M44d>::validator(QObject* parent)
{
    return numberValidator(parent);
}
QString FieldLayout<Imath::M44d>::text(const Imath::M44d& value, int field)
{
    return numberText(value[field / 4][field % 4]);
}
void FieldLayout<Imath::M44d>::read(Imath::M44d& value, int field, const QString& text)
{
    value[field / 4][field % 4] = number(text);
}

template <typename T>
FieldsMetadataWidget<T>::FieldsMetadataWidget(const QString& name, QWidget* parent) : MetadataWidget(name, parent)
{
    QValidator* validator = Layout::validator(this);
    QLayout* layout = nullptr;
    QGridLayout* grid = Layout::kColumns < Layout::kCount ? new QGridLayout(this) : nullptr;
    QHBoxLayout* row = grid ? nullptr : new QHBoxLayout(this);
    layout = grid ? static_cast<QLayout*>(grid) : row;
    layout->setContentsMargins(0, 0, 0, 0);
    for (int i = 0; i < Layout::kCount; ++i) {
        auto* field = new QLineEdit(this);
        field->setValidator(validator);
        field->setAccessibleName(name + " " + QString::number(i));
        // Fields share the row's width: a row never pushes the dock wider.
        field->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
        field->setMinimumWidth(30);
        if (grid)
            grid->addWidget(field, i / Layout::kColumns, i % Layout::kColumns);
        else
            row->addWidget(field);
        connect(field, SIGNAL(editingFinished()), this, SLOT(valueChanged()));
        fields[size_t(i)] = field;
    }
}

template <typename T>
T FieldsMetadataWidget<T>::value() const
{
    T value{};
    for (int i = 0; i < Layout::kCount; ++i)
        Layout::read(value, i, fields[size_t(i)]->text());
    return value;
}

template <typename T>
void FieldsMetadataWidget<T>::setValue(const T& value)
{
    for (int i = 0; i < Layout::kCount; ++i)
        fields[size_t(i)]->setText(Layout::text(value, i));
}

template <typename T>
QString FieldsMetadataWidget<T>::valueAsString() const
{
    QStringList texts;
    for (const QLineEdit* field : fields)
        texts << field->text();
    return texts.join(' ');
}

template <typename T>
bool FieldsMetadataWidget<T>::setMetadata(const ZentoCore::Metadata& value)
{
    const auto* typed = dynamic_cast<const ZentoCore::MetadataImpl<T>*>(&value);
    if (!typed)
        return false;
    setValue(typed->get());
    return true;
}

template <typename T>
std::shared_ptr<ZentoCore::Metadata> FieldsMetadataWidget<T>::metadata() const
{
    return std::make_shared<ZentoCore::MetadataImpl<T>>(value());
}

template class FieldsMetadataWidget<int>;
template class FieldsMetadataWidget<double>;
template class FieldsMetadataWidget<Imath::V2d>;
template class FieldsMetadataWidget<Imath::V3d>;
template class FieldsMetadataWidget<Imath::Eulerd>;
template class FieldsMetadataWidget<Imath::Quatd>;
template class FieldsMetadataWidget<Imath::M44d>;
