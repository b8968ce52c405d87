#include "EnumMetadataWidget.h"

#include "MetadataImpl.h"

#include <QComboBox>
#include <QHBoxLayout>

EnumMetadataWidget::EnumMetadataWidget(const QString& name, const std::vector<std::string>& options, QWidget* parent)
    : MetadataWidget(name, parent)
{
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    box = new QComboBox(this);
    box->setAccessibleName(name);
    for (const std::string& option : options)
        box->addItem(QString::fromStdString(option), QVariant());
    layout->addWidget(box);
    connect(box, SIGNAL(currentIndexChanged(int)), this, SLOT(valueChanged()));
}

int EnumMetadataWidget::value() const
{
    return box->currentIndex();
}

void EnumMetadataWidget::setValue(int index)
{
    box->setCurrentIndex(index >= 0 && index < box->count() ? index : -1);
}

QString EnumMetadataWidget::valueAsString() const
{
    return box->currentText();
}

unsigned int EnumMetadataWidget::typeId() const
{
    return ZentoCore::MetadataImpl<int>::staticTypeId();
}

bool EnumMetadataWidget::setMetadata(const ZentoCore::Metadata& value)
{
    const auto* typed = dynamic_cast<const ZentoCore::MetadataImpl<int>*>(&value);
    if (typed)
        setValue(typed->get());
    return typed != nullptr;
}

std::shared_ptr<ZentoCore::Metadata> EnumMetadataWidget::metadata() const
{
    return std::make_shared<ZentoCore::MetadataImpl<int>>(value());
}
