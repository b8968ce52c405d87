#pragma once

#include <QString>

#include <string>
#include <vector>

class MetadataWidget;

// The widget for a value of the type id, or null for a type that has none.
// An int with options is shown as a choice among them.
MetadataWidget* makeMetadataWidget(unsigned int typeId, const QString& name, const std::vector<std::string>* options);
