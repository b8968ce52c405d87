#pragma once

#include "DebugLine.h"
#include "Mesh.h"
#include "RigidBody.h"
#include "RigidBodyAttributes.h"
#include "RigidBodyConstraint.h"
#include "RigidBodyConstraintAttributes.h"

#include <Imath/ImathMatrix.h>
#include <Imath/ImathVec.h>

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

class btDiscreteDynamicsWorld;

namespace Zento {

// How hard a hand's drag may pull.
struct DragSettings {
    // The force limit per kilogram pulled, in metres per second squared:
    // two and a half times gravity, enough to lift what it pulls and swing it
    // along, little enough for its joints to hold.
    double acceleration = 25.0;
};

// The physics scene behind the solver, on Bullet. Settings are stored until
// init and initScene build the world; bodies and joints are then added from
// their attribute records, and each stepPhysics advances one frame in
// fixed sub-steps. Lengths are in scene units at the interface and in metres
// (scene units times the scene scale) inside.
class ZentoPhysx {
public:
    ZentoPhysx();
    ~ZentoPhysx();

    ZentoPhysx(const ZentoPhysx&) = delete;
    ZentoPhysx& operator=(const ZentoPhysx&) = delete;

    bool isInitialized() const;
    // Drops the world with every body and joint, and puts every setting back
    // to its default; init may follow again.
    void release();

    // Settings, stored until init and initScene. Values that make no sense
    // (a frame rate of zero, a negative scale, NaN) keep the last good one.
    // Bullet runs on the CPU alone and has no remote debugger: the GPU and
    // debugger connection settings have no effect. Instead, enablePvd turns on
    // Bullet's debug drawing, collected at each step in debugLines.
    void setUseGpu(bool use);
    void enablePvd(bool enable);
    void setKinematicKinematicFilter(bool enable);
    void setStaticKinematicFilter(bool enable);
    void setPvdHost(const std::string& host);
    void setPvdPort(int port);
    void setPvdTimeout(unsigned int timeout);
    // At most kMaxSubSamples, so that no setting can stall a frame.
    void setSubSamples(unsigned int subSamples);
    // "solverType" of the solver node: the projected Gauss-Seidel or the
    // temporal Gauss-Seidel solver.
    enum SolverType : short { PGS, TGS };
    void setSolverType(short type);
    void setGravity(const Imath::V3d& gravity);
    // Bullet has no friction offset threshold nor CCD separation: no effect.
    void setFrictionOffsetThreshold(double threshold);
    void setCcdMaxSeparation(double separation);
    // The solver's linear slop and restitution velocity threshold; without a
    // call Bullet's defaults stay.
    void setSolverOffsetSlop(double slop);
    void setBounceThresholdVelocity(double velocity);
    void setFps(double fps);
    void setScale(double scale);

    static constexpr unsigned int kMaxSubSamples = 1000;
    // A sphere or capsule resists rolling with a lever of this fraction of
    // its radius, and spinning about the contact normal with a smaller one,
    // so that a head or a toe comes to rest instead of rolling on. A contact
    // takes the average of its two bodies' levers.
    static constexpr double kRollingResistance = 0.2;
    static constexpr double kSpinningResistance = 0.1;

    // The smallest size a shape is given, in metres: zero or denormal sizes
    // would leave Bullet with no volume to push against.
    static constexpr float kMinimumSize = 1e-4f;

    // What the simulation makes of a body record at its world scale: the
    // shape's smallest width across in metres, whether a size had to be
    // raised to kMinimumSize (a zero size), and the mass in kilograms that a
    // dynamic body of it gets (0 when it can have none). Empty for a mesh
    // shape and sizes that are not finite.
    struct BodyMeasure {
        double thickness = 0.0;
        bool raisedToMinimum = false;
        double mass = 0.0;
    };
    static std::optional<BodyMeasure> measure(const RigidBodyAttributes& attributes, double sceneScale);

    void init();
    void initScene();

    // A body at the record's world pose (translation, rotation and scale
    // extracted from it); null before initScene, for the mesh shapes and for
    // a record whose sizes or mass cannot make a body.
    RigidBody* addRigidBody(const std::string& name, const RigidBodyAttributes& attributes, ZentoUtils::Mesh* mesh,
                            bool convex);
    // A joint between two bodies of the table, its frames relative to each
    // body. A default body, such as one not in the table, stands for the fixed
    // world. Null before initScene, for an unknown type, for two default bodies,
    // a body joined to itself and frames that are not finite.
    RigidBodyConstraint* addRigidBodyConstraint(const std::string& name,
                                                const RigidBodyConstraintAttributes& attributes,
                                                RigidBody* parent, const Imath::M44f& parentFrame, RigidBody* child,
                                                const Imath::M44f& childFrame, bool projection);
    // A hand's drag: a spring and damper from the handle, a kinematic body,
    // to the body at the world point in scene units, with a force limit of
    // the settings' acceleration times the mass it pulls (the body and every
    // dynamic body joined to it). Null before initScene, for a handle or a
    // body that is not simulated, and for a point that is not finite.
    RigidBodyConstraint* addDrag(const std::string& name, RigidBody* handle, RigidBody* body,
                                 const Imath::V3f& point, const DragSettings& settings = {});
    // Bodies listed under an aggregate number stop colliding with each other
    // when selfCollision says false for that number; a number without an
    // entry keeps its collisions.
    void addAggregates(const std::unordered_map<int, std::vector<int>>& aggregates,
                       const std::unordered_map<int, bool>& selfCollision, unsigned long long maxActors,
                       bool enhancedDeterminism);

    std::unordered_map<unsigned long long, RigidBody>& rigidBodies();
    // Removes the body and every joint on it.
    void removeRigidBody(unsigned long long id);
    // One frame of 1/fps seconds in subSamples steps. Kinematic bodies travel
    // to their targets over the frame; a dynamic body whose pose stops being
    // finite is frozen where it last was, and named once in frozenBodies.
    void stepPhysics();

    // Moves every body but the planes by the offset, in scene units, with the
    // kinematic bodies' targets: the scene lifted off its grounds.
    void moveBodies(const Imath::V3f& offset);
    // The lowest point of every body but the planes along the unit direction
    // up, in scene units; empty without such a body.
    std::optional<float> lowestPoint(const Imath::V3f& up) const;
    // The pairs of bodies, by id, whose shapes overlap deeper than depth
    // metres at their current poses, among the pairs that the collision
    // filter lets touch (pools, aggregates, joints without "enableCollision").
    struct Overlap {
        unsigned long long first = 0;
        unsigned long long second = 0;
        // How deep the shapes overlap, metres.
        double depth = 0.0;
    };
    std::vector<Overlap> overlappingBodies(double depth);

    // The joints in the order they were added.
    std::vector<RigidBodyConstraint*> constraints() const;
    // The debug drawing of the last step while the debugger is enabled.
    const std::vector<DebugLine>& debugLines() const;
    const std::vector<std::string>& frozenBodies() const;
    // Bullet's iterations of contacts each sub-step runs: four for each that
    // the most demanding body asks for ("TGS": a quarter of that, at least one).
    int solverIterations() const;

    // The Bullet world itself, for looking into; null before initScene.
    btDiscreteDynamicsWorld* world();

private:
    struct Settings;
    struct Scene;
    struct Actor;
    class PairFilter;
    class World;
    struct Travel;

    void dropScene();
    // Builds the engine's body for the record; null for a record it cannot hold.
    RigidBody* addActor(const std::string& name, const RigidBodyAttributes& attributes);
    // Gives the body its id and puts it into the world and the body table.
    RigidBody& addToWorld(std::unique_ptr<Actor> actor, const RigidBodyAttributes& attributes);
    void removeConstraintsOn(unsigned long long id);
    // The mass of the body and of every dynamic body joined to it, in kilograms.
    double pulledMass(unsigned long long id) const;
    // The body and every body joined to it, by their ids.
    std::vector<unsigned long long> joinedTo(unsigned long long id) const;
    // The solver iterations of every joint on those bodies; -1 for the world's.
    void setJointIterations(unsigned long long id, int iterations);
    // Whether a hand's drag pulls on a body.
    bool isDragged() const;
    std::vector<Travel> kinematicTravels() const;
    void wakeBodiesJoinedTo(const std::vector<Travel>& travels);
    void guardActors();
    void collectDebugLines();

    std::unique_ptr<Settings> mSettings;
    std::unique_ptr<Scene> mScene;
    std::unordered_map<unsigned long long, RigidBody> mBodies;
    std::vector<std::unique_ptr<RigidBodyConstraint>> mConstraints;
    std::vector<DebugLine> mDebugLines;
    std::vector<std::string> mFrozenBodies;
    // Never reset, so that an id kept from an earlier run names no new body.
    unsigned long long mLastId = 0;
};

} // namespace Zento
