#pragma once

#include "MetadataWidget.h"

#include <string>
#include <vector>

class QComboBox;

// An int attribute shown by the names of its options; the value is the
// index in the option list, not the text.
class EnumMetadataWidget : public MetadataWidget {
    Q_OBJECT

public:
    EnumMetadataWidget(const QString& name, const std::vector<std::string>& options, QWidget* parent = nullptr);

    int value() const;
    // An index outside the options shows no current item.
    void setValue(int index);

    QString valueAsString() const override;
    unsigned int typeId() const override;
    bool setMetadata(const ZentoCore::Metadata& value) override;
    std::shared_ptr<ZentoCore::Metadata> metadata() const override;

    QComboBox* box = nullptr;
};
