#include "StringMetadataWidget.h"

#include "MetadataImpl.h"

#include <QHBoxLayout>
#include <QLineEdit>

StringMetadataWidget::StringMetadataWidget(const QString& name, QWidget* parent) : MetadataWidget(name, parent)
{
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    field = new QLineEdit(this);
    field->setAccessibleName(name);
    layout->addWidget(field);
    connect(field, SIGNAL(editingFinished()), this, SLOT(valueChanged()));
}

QString StringMetadataWidget::value() const
{
    return field->text();
}

void StringMetadataWidget::setValue(const QString& value)
{
    field->setText(value);
}

QString StringMetadataWidget::valueAsString() const
{
    return value();
}

unsigned int StringMetadataWidget::typeId() const
{
    return ZentoCore::MetadataImpl<std::string>::staticTypeId();
}

bool StringMetadataWidget::setMetadata(const ZentoCore::Metadata& value)
{
    const auto* typed = dynamic_cast<const ZentoCore::MetadataImpl<std::string>*>(&value);
    if (typed)
        setValue(QString::fromStdString(typed->get()));
    return typed != nullptr;
}

std::shared_ptr<ZentoCore::Metadata> StringMetadataWidget::metadata() const
{
    return std::make_shared<ZentoCore::MetadataImpl<std::string>>(value().toStdString());
}
