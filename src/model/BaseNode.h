#pragma once

#include "MapMetadata.h"
#include "NodePath.h"

#include <Imath/ImathEuler.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathVec.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

// A coloured polyline drawn over the scene.
struct GuideLine {
    Imath::V3f color;
    std::vector<Imath::V3f> points;
};

// Every object of a scene: a transform in a tree, a colour, two state flags
// and the attribute maps. The classes differ in type id, attributes and
// geometry. Fields are public: code changes them and then tells the scene graph.
class BaseNode {
public:
    explicit BaseNode(const ZentoCore::NodePath& path);
    virtual ~BaseNode();

    BaseNode(const BaseNode&) = delete;
    BaseNode& operator=(const BaseNode&) = delete;

    virtual int typeId() const = 0;
    virtual const std::string& typeName() const = 0;
    virtual bool skipsRendering() const = 0;
    // A new map with one entry "geo", the shape in local space; null when the node draws nothing.
    virtual std::shared_ptr<ZentoCore::MapMetadata> geometry();
    // Adding a child changes the shape.
    virtual bool geometryFollowsChildren() const;
    // Changing an attribute changes the shape.
    virtual bool geometryFollowsAttributes() const;
    virtual void guideLines(std::vector<GuideLine>& lines) const;

    // scale, then rotation, then translation; the pivot takes no part.
    Imath::M44d localMatrix() const;
    // The local matrix followed by those of every ancestor, walked on each call.
    Imath::M44d worldMatrix() const;

    // Every node below this one, depth first, each parent before its children.
    // A walk with a stack of its own: no depth of tree exhausts the call stack.
    std::vector<BaseNode*> descendants() const;

    ZentoCore::MapMetadata attributes;
    ZentoCore::MapMetadata attributeHints;
    Imath::V3d translation{0.0, 0.0, 0.0};
    Imath::V3d scale{1.0, 1.0, 1.0};
    Imath::Eulerd rotation{0.0, 0.0, 0.0, Imath::Eulerd::XYZ};
    Imath::V3d pivot{0.0, 0.0, 0.0};
    Imath::V4d color{0.65, 0.65, 0.65, 1.0};
    BaseNode* parent = nullptr;
    std::vector<BaseNode*> children;
    ZentoCore::NodePath path;
    double displaySize = 1.0;
    bool visible = true;
    bool active = true;

protected:
    // "__list__": the attribute editor's rows in order, "@" items as group headers.
    void setDisplayList(std::vector<std::string> items);
    // An "enum" hint with the option names in index order, one map shared by all keys.
    void setEnumHint(const std::vector<std::string>& keys, std::vector<std::string> options);
};

// The nodes of a scene by path, in path order, so that a parent comes before
// everything below it.
using NodeMap = std::map<ZentoCore::NodePath, std::shared_ptr<BaseNode>>;
