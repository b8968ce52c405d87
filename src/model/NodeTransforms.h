#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

class BaseNode;

// The move, rotate and scale rules of the transform tools: the multi-object
// commands apply them on redo and the manipulators live during a drag, so that
// the result of a drag is the result of its command. Each starts from the
// node's state at the press and writes only the node's own fields; the caller
// pushes the matrices (or, where a shape changed, the geometry) to the graph.
namespace NodeTransforms {

// The world matrix of the node's parent; the identity at the top level.
Imath::M44d parentWorld(const BaseNode& node);

// Gives the node the translation that puts it at the world matrix's position
// moved by offset (world units); scale and rotation stay.
void moveTo(BaseNode& node, Imath::M44d world, const Imath::V3d& offset);

// Writes the rotation part of a local matrix to the node, keeping its order.
void setRotationFrom(BaseNode& node, const Imath::M44d& local);

// Turns the node, from its local matrix at the press, by a world rotation
// about its own position: its own orientation first, then the rotation.
void rotateFrom(BaseNode& node, const Imath::M44d& startLocal, const Imath::Quatd& rotation);

// The "dimension" of a node sized by its shape (a body of a type other than
// "Plane"), else null: such a node is scaled through its shape, any other
// through its scale.
Imath::V3d* shapeDimension(BaseNode& node);

// The dimension scaled by per-axis factors. A capsule keeps its radius in x
// and half height in y whichever axis it lies on, so the factor along its own
// axis goes to y and the other two to x and z.
Imath::V3d scaledDimension(const Imath::V3d& dimension, const Imath::V3d& factors, int capsuleAxis);

// Scales the node by factors from its state at the press: a node sized by
// its shape gets startDimension scaled, any other the scale of startLocal
// times factors. True when the shape changed (rebuild the geometry), false
// when the scale did (push the matrix).
bool scaleFrom(BaseNode& node, const Imath::M44d& startLocal, const Imath::V3d& startDimension,
               const Imath::V3d& factors);

} // namespace NodeTransforms
