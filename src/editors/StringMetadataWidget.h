#pragma once

#include "MetadataWidget.h"

class QLineEdit;

// A line of text, as it stands.
class StringMetadataWidget : public MetadataWidget {
    Q_OBJECT

public:
    explicit StringMetadataWidget(const QString& name, QWidget* parent = nullptr);

    QString value() const;
    virtual void setValue(const QString& value);

    QString valueAsString() const override;
    unsigned int typeId() const override;
    bool setMetadata(const ZentoCore::Metadata& value) override;
    std::shared_ptr<ZentoCore::Metadata> metadata() const override;

    QLineEdit* field = nullptr;
};
