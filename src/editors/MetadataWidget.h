#pragma once

#include "Metadata.h"

#include <QString>
#include <QWidget>

#include <memory>

// The editor of one attribute value in a row of the attribute editor. The
// value lives only in the widget's fields, as text; an edit emits
// metadataUpdated(), except while the attribute editor fills the widget.
class MetadataWidget : public QWidget {
    Q_OBJECT

public:
    explicit MetadataWidget(const QString& name, QWidget* parent = nullptr);

    // The fields' texts, joined by one blank.
    virtual QString valueAsString() const = 0;
    // The type id of the value it edits.
    virtual unsigned int typeId() const = 0;
    // Shows the value; false, with the fields left as they are, for a value of another type.
    virtual bool setMetadata(const ZentoCore::Metadata& value) = 0;
    // The value as the fields show it now.
    virtual std::shared_ptr<ZentoCore::Metadata> metadata() const = 0;

    // The attribute's key.
    const QString name;
    // Set while the attribute editor writes the fields.
    bool updating = false;

signals:
    void metadataUpdated();

public slots:
    void valueChanged();
};
