#pragma once

#include "MetadataWidget.h"

class QCheckBox;

// A check box; its text is "1" when checked, "0" otherwise.
class BoolMetadataWidget : public MetadataWidget {
    Q_OBJECT

public:
    explicit BoolMetadataWidget(const QString& name, QWidget* parent = nullptr);

    bool value() const;
    void setValue(bool value);

    QString valueAsString() const override;
    unsigned int typeId() const override;
    bool setMetadata(const ZentoCore::Metadata& value) override;
    std::shared_ptr<ZentoCore::Metadata> metadata() const override;

    QCheckBox* box = nullptr;
};
