#pragma once

// Human ragdolls dropped, piled and dragged, with what an artist judges them
// by: how far their joints stand apart and past their limits, how deep they
// lie, how fast they go and whether they sleep. For the simulation tests and
// the physics benchmark.

#include "AutoRig.h"
#include "BaseCommand.h"
#include "CharacterImport.h"
#include "ConstraintNode.h"
#include "MathUtils.h"
#include "RagdollFixture.h"
#include "SolverNode.h"
#include "ZentoPhysx.h"
#include "ZentoSceneGraph.h"

#include <btBulletDynamicsCommon.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// A scene graph with its solver, stepped a frame at a time.
struct SolverScene {
    SolverScene()
    {
        graph.createSolver();
        solver = std::dynamic_pointer_cast<SolverNode>(graph.node("/Solver"));
    }

    void run(int frames)
    {
        for (int frame = 0; frame < frames; ++frame)
            graph.stepSimulation();
    }

    ZentoSceneGraph graph;
    std::shared_ptr<SolverNode> solver;
};

// Human ragdolls on the motion capture skeleton of RagdollFixture, with D6
// joints of a twist of +-30 and a swing cone of 45 degrees, default settings
// otherwise. Each is either the fixture's, whose capsules are as thick as a
// tenth of their bones (a 0.8 g fingertip on a 140 g forearm) and whose
// units of about 5.6 cm the scene scale turns into metres, or one as
// zento-rig builds it: capsules sized for a person of 1.75 m, no body more
// than ten times the mass of one it is joined to.
struct RagdollScene : SolverScene {
    static constexpr double kFixtureScale = 0.056;
    static constexpr double kTwist = 30.0, kSwing = 45.0;
    enum class Build { Fixture, Rig };

    // One joint's frame on each of its bodies, as the solver finds them.
    struct Joint {
        const BaseNode* parent;
        const BaseNode* child;
        Imath::M44d parentFrame;
        Imath::M44d childFrame;
    };
    // The worst joint of a moment: anchors apart in metres, degrees beyond a limit.
    struct Worst {
        double apart = 0.0;
        double beyond = 0.0;
        void include(const Worst& other)
        {
            apart = std::max(apart, other.apart);
            beyond = std::max(beyond, other.beyond);
        }
    };

    explicit RagdollScene(int count, int solverType = Zento::ZentoPhysx::PGS, Build build = Build::Fixture)
    {
        solver->attributes.typedEntry<int>("solverType")->set(solverType);
        ragdolls.push_back(build == Build::Fixture ? fixture() : rig());
        RagdollFixture::limitJoints(ragdolls.front(), kTwist, kSwing);
        for (int copy = 1; copy < count; ++copy)
            ragdolls.push_back(RagdollFixture::copyRagdoll(graph, "/Skeleton", "/Skeleton" + std::to_string(copy),
                                                           Imath::V3d(0, 0, 0)));
    }

    // Turns the ragdoll's root joint and lifts it to drop from the height
    // in metres, moved sideways by offset metres.
    void place(size_t ragdoll, const Imath::Eulerd& turn, double height, const Imath::V3d& offset = Imath::V3d(0, 0, 0))
    {
        BaseNode* root = ragdolls[ragdoll].bodies.front().get();
        while (root->parent)
            root = root->parent;
        root->rotation = turn;
        graph.updateMatrix(root->path);
        double lowest = 1e300;
        for (const auto& body : ragdolls[ragdoll].bodies)
            lowest = std::min(lowest, ends(*body, body->worldMatrix()).first);
        root->translation += offset / scale + Imath::V3d(0, height / scale - lowest, 0);
        graph.updateMatrix(root->path);
    }

    // Every ragdoll over the others in layers of four, each turned its own
    // way: a pile. For the fixture's character of 95 cm the layers are 40 cm
    // apart and the ragdolls of a layer 35 cm; a larger one spreads the pile
    // in proportion. The lowest layer drops from 50 cm.
    void placeAsPile()
    {
        const double size = scale / kFixtureScale;
        for (size_t index = 0; index < ragdolls.size(); ++index)
            place(index, Imath::Eulerd(M_PI / 2 + 0.3 * index, 0.7 * index, 0.1 * index),
                  0.5 + 0.4 * size * double(index / 4),
                  Imath::V3d(0.35 * (index % 2), 0, 0.35 * (index % 4 / 2)) * size);
    }

    void start()
    {
        joints.clear();
        for (const auto& ragdoll : ragdolls)
            for (const auto& constraint : ragdoll.constraints) {
                const BaseNode* child = ConstraintNode::childBody(*constraint);
                const BaseNode* parent = ConstraintNode::parentBody(*constraint, graph.nodes);
                if (!parent)
                    continue;
                const Imath::M44d frame = constraint->worldMatrix();
                joints.push_back({parent, child, frame * ZentoCore::matrixInverse(parent->worldMatrix()),
                                  frame * ZentoCore::matrixInverse(child->worldMatrix())});
            }
        graph.startSimulation();
    }

    // The heights of the lowest and the highest point of a capsule along x at
    // the world matrix, in scene units.
    static std::pair<double, double> ends(const BaseNode& body, const Imath::M44d& world)
    {
        const Imath::V3d dimension = body.attributes.typedEntry<Imath::V3d>("dimension")->get();
        Imath::V3d a, b;
        world.multVecMatrix(Imath::V3d(-dimension.y, 0, 0), a);
        world.multVecMatrix(Imath::V3d(dimension.y, 0, 0), b);
        return {std::min(a.y, b.y) - dimension.x, std::max(a.y, b.y) + dimension.x};
    }

    // From the engine's poses, in metres: the lowest point of any body, and
    // the lowest top of any body, below 0 for a body wholly under the ground.
    std::pair<double, double> depths() const
    {
        std::pair<double, double> depths{1e300, 1e300};
        for (const auto& ragdoll : ragdolls)
            for (const auto& body : ragdoll.bodies) {
                const auto [low, high] = ends(*body, Imath::M44d(solver->bodyOf(*body)->poseMatrix()));
                depths = {std::min(depths.first, low * scale), std::min(depths.second, high * scale)};
            }
        return depths;
    }

    static Imath::M44d rotationOnly(Imath::M44d m)
    {
        m[3][0] = m[3][1] = m[3][2] = 0.0;
        return m;
    }

    // Of every joint. Euler angles x, y, z in turn: twist first, then the two swings.
    Worst worst() const
    {
        Worst worst;
        for (const Joint& joint : joints) {
            const Imath::M44d parent = joint.parentFrame * joint.parent->worldMatrix();
            const Imath::M44d child = joint.childFrame * joint.child->worldMatrix();
            const Imath::Eulerd angles(rotationOnly(child) * rotationOnly(parent).transposed(), Imath::Eulerd::XYZ);
            const Imath::V3d degrees = Imath::V3d(angles) * (180.0 / M_PI);
            worst.include({(parent.translation() - child.translation()).length() * scale,
                           std::max({0.0, std::abs(degrees.x) - kTwist, std::abs(degrees.y) - kSwing,
                                     std::abs(degrees.z) - kSwing})});
        }
        return worst;
    }

    // The fastest body, in metres per second; infinite once any pose or
    // velocity in the engine, or any node, is not finite.
    double fastest() const
    {
        double fastest = 0.0;
        const auto& objects = solver->physics.world()->getCollisionObjectArray();
        for (int index = 0; index < objects.size(); ++index) {
            const btVector3& velocity = btRigidBody::upcast(objects[index])->getLinearVelocity();
            const btVector3& position = objects[index]->getWorldTransform().getOrigin();
            if (!std::isfinite(velocity.length() + position.length()))
                return std::numeric_limits<double>::infinity();
            fastest = std::max(fastest, double(velocity.length()));
        }
        for (const auto& ragdoll : ragdolls)
            for (const auto& body : ragdoll.bodies)
                if (!std::isfinite(body->translation.length() + Imath::V3d(body->rotation).length()))
                    return std::numeric_limits<double>::infinity();
        return fastest;
    }

    bool asleep() const
    {
        const auto& objects = solver->physics.world()->getCollisionObjectArray();
        for (int index = 0; index < objects.size(); ++index)
            if (!objects[index]->isStaticOrKinematicObject() && objects[index]->isActive())
                return false;
        return true;
    }

    std::vector<Imath::V3d> positions() const
    {
        std::vector<Imath::V3d> positions;
        for (const auto& ragdoll : ragdolls)
            for (const auto& body : ragdoll.bodies)
                positions.push_back(body->worldMatrix().translation());
        return positions;
    }

    // Metres per scene unit.
    double scale = kFixtureScale;
    std::vector<RagdollFixture::Ragdoll> ragdolls;
    std::vector<Joint> joints;

private:
    RagdollFixture::Ragdoll fixture()
    {
        solver->attributes.typedEntry<double>("sceneScale")->set(kFixtureScale);
        graph.createGround();
        return RagdollFixture::loadRagdoll(graph);
    }

    // Built on the skeleton as zento-rig builds it, its ground moved to the
    // height of the fixture's, 0.
    RagdollFixture::Ragdoll rig()
    {
        std::string root;
        for (const std::string& path : CharacterImport::loadSkeleton(graph, RagdollFixture::kSkeletonFile))
            if (root.empty() && path.rfind("/Skeleton/", 0) == 0)
                root = path;
        AutoRig::Result result;
        const std::shared_ptr<BaseCommand> command = AutoRig::build(graph, root, {}, result);
        RagdollFixture::Ragdoll ragdoll;
        if (!command)
            return ragdoll;
        command->execute();
        scale = result.sceneScale;
        const std::shared_ptr<BaseNode> ground = graph.node(result.ground);
        ground->translation.y = 0.0;
        graph.updateMatrix(ground->path);
        for (const std::string& path : result.bodies)
            ragdoll.bodies.push_back(std::dynamic_pointer_cast<RigidBodyNode>(graph.node(path)));
        for (const std::string& path : result.constraints)
            ragdoll.constraints.push_back(std::dynamic_pointer_cast<ConstraintNode>(graph.node(path)));
        return ragdoll;
    }
};
