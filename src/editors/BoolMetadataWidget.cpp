#include "BoolMetadataWidget.h"

#include "MetadataImpl.h"

#include <QCheckBox>
#include <QHBoxLayout>

BoolMetadataWidget::BoolMetadataWidget(const QString& name, QWidget* parent) : MetadataWidget(name, parent)
{
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    box = new QCheckBox(this);
    box->setAccessibleName(name);
    layout->addWidget(box);
    connect(box, SIGNAL(clicked()), this, SLOT(valueChanged()));
}

bool BoolMetadataWidget::value() const
{
    return box->isChecked();
}

void BoolMetadataWidget::setValue(bool value)
{
    box->setChecked(value);
}

QString BoolMetadataWidget::valueAsString() const
{
    return value() ? "1" : "0";
}

unsigned int BoolMetadataWidget::typeId() const
{
    return ZentoCore::MetadataImpl<bool>::staticTypeId();
}

bool BoolMetadataWidget::setMetadata(const ZentoCore::Metadata& value)
{
    const auto* typed = dynamic_cast<const ZentoCore::MetadataImpl<bool>*>(&value);
    if (typed)
        setValue(typed->get());
    return typed != nullptr;
}

std::shared_ptr<ZentoCore::Metadata> BoolMetadataWidget::metadata() const
{
    return std::make_shared<ZentoCore::MetadataImpl<bool>>(value());
}
