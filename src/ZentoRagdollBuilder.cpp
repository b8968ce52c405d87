#include "ZentoRagdollBuilder.h"

ZentoRagdollBuilder::ZentoRagdollBuilder(QWidget* parent) : QMainWindow(parent)
{
    setObjectName("ZentoRagdollBuilderClass");
    resize(600, 400);
    setWindowTitle("Zento Ragdoll Builder");
}

ZentoRagdollBuilder::~ZentoRagdollBuilder() = default;
