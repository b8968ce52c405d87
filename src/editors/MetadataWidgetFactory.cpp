#include "MetadataWidgetFactory.h"

#include "BoolMetadataWidget.h"
#include "EnumMetadataWidget.h"
#include "FieldsMetadataWidget.h"
#include "StringMetadataWidget.h"

MetadataWidget* makeMetadataWidget(unsigned int typeId, const QString& name, const std::vector<std::string>* options)
{
    switch (typeId) {
    case ZentoCore::kIntTypeId:
        if (options)
            return new EnumMetadataWidget(name, *options);
        return new IntMetadataWidget(name);
    case ZentoCore::kDoubleTypeId: return new DoubleMetadataWidget(name);
    case ZentoCore::kVec2dTypeId: return new Vector2MetadataWidget(name);
    case ZentoCore::kVec3dTypeId: return new Vector3MetadataWidget(name);
    case ZentoCore::kMatrix44dTypeId: return new MatrixMetadataWidget(name);
    case ZentoCore::kQuatdTypeId: return new QuaternionMetadataWidget(name);
    case ZentoCore::kEulerdTypeId: return new EulerMetadataWidget(name);
    case ZentoCore::kStringTypeId: return new StringMetadataWidget(name);
    case ZentoCore::kBoolTypeId: return new BoolMetadataWidget(name);
    default: return nullptr;
    }
}
