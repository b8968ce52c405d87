#include "MetadataWidget.h"

MetadataWidget::MetadataWidget(const QString& name, QWidget* parent) : QWidget(parent), name(name)
{
    setObjectName(name);
    setAccessibleName(name);
}

void MetadataWidget::valueChanged()
{
    if (!updating)
        emit metadataUpdated();
}
