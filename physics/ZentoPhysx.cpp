#include "ZentoPhysx.h"

#include "BulletConversions.h"
#include "DistanceConstraint.h"
#include "DragSpring.h"
#include "JointBuilder.h"
#include "JointSolver.h"

#include <btBulletDynamicsCommon.h>

#include <Imath/ImathMatrixAlgo.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <optional>

namespace Zento {

namespace {

constexpr float kMinimumSize = ZentoPhysx::kMinimumSize;
// Bullet's convex margin, never more than a fifth of a box's smallest half extent.
constexpr float kBoxMargin = 0.04f;
// Contact points are drawn as their normal of this length, in metres.
constexpr float kContactNormalLength = 0.1f;

// Bullet's iterations for each of a body's "solverIteratorCount": its
// sequential impulses converge more slowly than PhysX's solver, and with
// fewer, a ragdoll's joints push its light toes and fingers through the
// ground.
constexpr int kIterationsPerCount = 4;
// "TGS" runs this many sub-steps for each of "PGS", with as many times fewer
// solver iterations each: the temporal trade-off of more, smaller steps.
constexpr unsigned int kTemporalSubSteps = 4;
// While a hand drags a body, "PGS" runs this many sub-steps for each, its
// iterations unchanged: a hand pulls on a chain of bodies hundreds of times
// its own mass, which half the step holds within 2 degrees and 4 mm where
// the whole step let joints open by 23 degrees and 5 cm. It costs twice the
// frame only while the hand holds on; "TGS" has the short steps already.
constexpr unsigned int kDraggedSubSteps = 2;
// A hand's drag is a critically damped spring of this frequency, in radians
// per second, for the mass it pulls; the joints of what it pulls iterate
// this often a step, so that they hold against it.
constexpr double kDragFrequency = 15.0;
constexpr int kDragJointIterations = 64;
// A body whose kinetic energy is this many times its sleep threshold is on
// the move, not jittering in place.
constexpr btScalar kMovingEnergies = 100;
// A joint's own iteration count that stands for the world's.
constexpr int kWorldIterations = -1;

// The rigid part of a row-vector matrix, its translation in metres; empty
// when the matrix has no finite rotation.
std::optional<btTransform> rigidTransform(const Imath::M44f& m, float sceneScale)
{
    Imath::M44f rotation = m;
    if (!Imath::removeScalingAndShear(rotation, false))
        return std::nullopt;
    Imath::Quatf q = Imath::extractQuat(rotation);
    if (!std::isfinite(q.length()) || q.length() == 0.0f)
        return std::nullopt;
    const Imath::V3f t = m.translation() * sceneScale;
    if (!isFinite(t))
        return std::nullopt;
    return btTransform(toBullet(q.normalize()), toBullet(t));
}

// A collision shape with what the body's mass and CCD need to know of it.
struct Shape {
    std::unique_ptr<btCollisionShape> shape;
    float volume = 0.0f;
    // The smallest width across the shape.
    float thickness = 0.0f;
    // The radius it rolls on: a sphere's or a capsule's; 0 for a shape that does not roll.
    float radius = 0.0f;
    // A size below kMinimumSize was raised to it.
    bool raised = false;
};

// The size, no less than Bullet can hold; notes in the shape when it was less.
float atLeastMinimum(float size, Shape& shape)
{
    if (size >= kMinimumSize)
        return size;
    shape.raised = true;
    return kMinimumSize;
}

// The shape of the record at its world scale, in metres; empty for a mesh
// shape or sizes that give no finite volume. Negative sizes count by their
// size, zero sizes as the smallest that Bullet can hold.
std::optional<Shape> makeShape(const RigidBodyAttributes& a, float scale)
{
    using Attributes = RigidBodyAttributes;
    const Imath::V3f size(std::abs(a.scale.x), std::abs(a.scale.y), std::abs(a.scale.z));
    const Imath::V3f dimension(std::abs(a.dimension.x), std::abs(a.dimension.y), std::abs(a.dimension.z));
    if (!isFinite(size) || !isFinite(dimension))
        return std::nullopt;
    const int axis = std::clamp(a.axis, 0, Attributes::kAxisCount - 1);
    Shape made;
    switch (a.type) {
    case Attributes::Plane: {
        btVector3 normal(0, 0, 0);
        normal[axis] = 1;
        made.shape = std::make_unique<btStaticPlaneShape>(normal, 0.0f);
        break;
    }
    case Attributes::Sphere: {
        const float radius = atLeastMinimum(dimension.x * std::max({size.x, size.y, size.z}) * scale, made);
        made.shape = std::make_unique<btSphereShape>(radius);
        made.volume = 4.0f / 3.0f * float(M_PI) * radius * radius * radius;
        made.thickness = 2.0f * radius;
        made.radius = radius;
        break;
    }
    case Attributes::Box: {
        Imath::V3f half = dimension * size * scale;
        half = Imath::V3f(atLeastMinimum(half.x, made), atLeastMinimum(half.y, made), atLeastMinimum(half.z, made));
        auto box = std::make_unique<btBoxShape>(toBullet(half));
        made.thickness = 2.0f * std::min({half.x, half.y, half.z});
        box->setMargin(std::min(kBoxMargin, 0.1f * made.thickness));
        made.shape = std::move(box);
        made.volume = 8.0f * half.x * half.y * half.z;
        break;
    }
    case Attributes::Capsule: {
        const float across = std::max(size[(axis + 1) % 3], size[(axis + 2) % 3]);
        const float radius = atLeastMinimum(dimension.x * across * scale, made);
        const float height = 2.0f * dimension.y * size[axis] * scale;
        if (axis == 0)
            made.shape = std::make_unique<btCapsuleShapeX>(radius, height);
        else if (axis == 1)
            made.shape = std::make_unique<btCapsuleShape>(radius, height);
        else
            made.shape = std::make_unique<btCapsuleShapeZ>(radius, height);
        made.volume = float(M_PI) * radius * radius * (height + 4.0f / 3.0f * radius);
        made.thickness = 2.0f * radius;
        made.radius = radius;
        break;
    }
    default:
        return std::nullopt;
    }
    if (!std::isfinite(made.volume))
        return std::nullopt;
    return made;
}

// The scene scale as the engine takes it, or the fallback for a scale that
// makes no sense (not finite, not positive, or too small to divide by).
float usableScale(double scale, float fallback)
{
    const float value = static_cast<float>(scale);
    return std::isfinite(value) && value > 0.0f && std::isfinite(1.0f / value) ? value : fallback;
}

// The plane shape stands for the ground: infinite and never moved.
bool isPlane(const btCollisionObject& object)
{
    return object.getCollisionShape()->getShapeType() == STATIC_PLANE_PROXYTYPE;
}

// How far up the lowest point of the shape at the pose lies, in metres: the
// point of the shape farthest down, as Bullet's collision detection finds it.
btScalar lowestAlong(const btCollisionShape& shape, const btTransform& pose, const btVector3& up)
{
    if (shape.isCompound()) {
        const auto& compound = static_cast<const btCompoundShape&>(shape);
        btScalar lowest = BT_LARGE_FLOAT;
        for (int child = 0; child < compound.getNumChildShapes(); ++child)
            lowest = std::min(lowest, lowestAlong(*compound.getChildShape(child),
                                                  pose * compound.getChildTransform(child), up));
        return lowest;
    }
    if (shape.isConvex()) {
        const btVector3 down = pose.getBasis().transpose() * -up;
        return up.dot(pose * static_cast<const btConvexShape&>(shape).localGetSupportingVertex(down));
    }
    const btTransform upright(shortestArcQuat(up, btVector3(0, 1, 0)));
    btVector3 minimum, maximum;
    shape.getAabb(upright * pose, minimum, maximum);
    return minimum.y();
}

class LineCollector : public btIDebugDraw {
public:
    LineCollector(std::vector<DebugLine>& lines, float sceneScale) : mLines(lines), mSceneScale(sceneScale) {}

    void drawLine(const btVector3& from, const btVector3& to, const btVector3& color) override
    {
        mLines.push_back({fromBullet(from) / mSceneScale, fromBullet(to) / mSceneScale, fromBullet(color)});
    }
    void drawContactPoint(const btVector3& point, const btVector3& normal, btScalar, int,
                          const btVector3& color) override
    {
        drawLine(point, point + normal * kContactNormalLength, color);
    }
    void reportErrorWarning(const char*) override {}
    void draw3dText(const btVector3&, const char*) override {}
    void setDebugMode(int) override {}
    int getDebugMode() const override
    {
        return DBG_DrawContactPoints | DBG_DrawConstraints | DBG_DrawConstraintLimits;
    }

private:
    std::vector<DebugLine>& mLines;
    float mSceneScale;
};

} // namespace

struct ZentoPhysx::Settings {
    bool debugDrawing = false;
    bool kinematicKinematicFilter = true;
    bool staticKinematicFilter = true;
    unsigned int subSamples = 10;
    short solverType = PGS;
    Imath::V3d gravity{0.0, -9.81, 0.0};
    std::optional<double> solverOffsetSlop;
    std::optional<double> bounceThresholdVelocity;
    double fps = 25.0;
    float sceneScale = 1.0f;

    unsigned int steps() const { return std::clamp(subSamples, 1u, kMaxSubSamples) * temporalFactor(); }
    double stepTime() const { return 1.0 / fps / steps(); }
    // Bullet's iterations of one sub-step for a body that asks for these.
    int iterationsPerStep(int iterations) const
    {
        const int factor = static_cast<int>(temporalFactor());
        return std::max(1, (kIterationsPerCount * iterations + factor - 1) / factor);
    }
    unsigned int temporalFactor() const { return solverType == TGS ? kTemporalSubSteps : 1u; }
};

struct ZentoPhysx::Actor {
    std::string name;
    unsigned long long id = 0;
    unsigned short state = RigidBodyAttributes::Static;
    int collisionPool = 0;
    int aggregate = -1;
    bool selfCollision = true;
    int solverIterations = 0;
    float maxAngularVelocity = 0.0f;
    // Kinetic energy per kilogram below which the body may sleep, in J/kg,
    // and how long it must stay below, in seconds.
    btScalar sleepEnergy = 0;
    btScalar wakeCounter = 0;
    // The body's motion over the current span of the wake counter: its
    // velocities summed over the span's sub-steps, in metres and radians.
    btVector3 travelled{0, 0, 0};
    btVector3 turned{0, 0, 0};
    // The centre of mass in the body's frame.
    btTransform centreOfMass = btTransform::getIdentity();
    btTransform lastFinite = btTransform::getIdentity();
    std::unique_ptr<btCollisionShape> shape;
    std::unique_ptr<btCompoundShape> massShape;
    std::unique_ptr<btDefaultMotionState> motionState;
    std::unique_ptr<btRigidBody> body;
};

// A kinematic body's way to its target over one frame.
struct ZentoPhysx::Travel {
    unsigned long long id;
    btMotionState* motion;
    btTransform start;
    btVector3 end;
};

// Decides which pairs of bodies may touch at all: the same collision pool,
// not both in one aggregate without self collision, and not a pair of
// kinematic, or static and kinematic, bodies while those filters are on.
class ZentoPhysx::PairFilter : public btOverlapFilterCallback {
public:
    explicit PairFilter(const Settings& settings) : mSettings(settings) {}

    bool needBroadphaseCollision(btBroadphaseProxy* proxy0, btBroadphaseProxy* proxy1) const override;

private:
    const Settings& mSettings;
};

// PhysX combines the materials of two bodies in contact by their average,
// Bullet by their product. The contacts of each step are given the average
// (of the rolling resistances too) before the solver sees them.
//
// Bullet puts a body to sleep once its speeds have stayed below thresholds
// for two seconds; PhysX once its kinetic energy per kilogram has stayed
// below "sleepThreshold" for "wakeCounter" seconds. Bodies here sleep as in
// PhysX, on the energy of their velocities averaged over each span of the
// wake counter, as PhysX accumulates them, so that a light body that jitters
// in place (a finger in a pile) does not keep its whole island awake.
class ZentoPhysx::World : public btDiscreteDynamicsWorld {
public:
    using btDiscreteDynamicsWorld::btDiscreteDynamicsWorld;

    void solveConstraints(btContactSolverInfo& solverInfo) override
    {
        btDispatcher& dispatcher = *getDispatcher();
        for (int index = 0; index < dispatcher.getNumManifolds(); ++index) {
            btPersistentManifold& manifold = *dispatcher.getManifoldByIndexInternal(index);
            const btCollisionObject& a = *manifold.getBody0();
            const btCollisionObject& b = *manifold.getBody1();
            const btScalar friction = 0.5f * (a.getFriction() + b.getFriction());
            const btScalar restitution = 0.5f * (a.getRestitution() + b.getRestitution());
            const btScalar rolling = 0.5f * (a.getRollingFriction() + b.getRollingFriction());
            const btScalar spinning = 0.5f * (a.getSpinningFriction() + b.getSpinningFriction());
            for (int point = 0; point < manifold.getNumContacts(); ++point) {
                btManifoldPoint& contact = manifold.getContactPoint(point);
                contact.m_combinedFriction = friction;
                contact.m_combinedRestitution = restitution;
                contact.m_combinedRollingFriction = rolling;
                contact.m_combinedSpinningFriction = spinning;
            }
        }
        btDiscreteDynamicsWorld::solveConstraints(solverInfo);
    }

    // Marks the bodies that may sleep; Bullet's islands then sleep when all
    // their bodies may. The body's deactivation time counts the seconds of
    // the current span, so that Bullet's waking of a body (activate) starts
    // a new span.
    void updateActivationState(btScalar timeStep) override
    {
        for (int index = 0; index < m_nonStaticRigidBodies.size(); ++index) {
            btRigidBody& body = *m_nonStaticRigidBodies[index];
            auto* actor = static_cast<Actor*>(body.getUserPointer());
            const int state = body.getActivationState();
            if (!actor || state == DISABLE_DEACTIVATION || body.isStaticOrKinematicObject())
                continue;
            if (state == ISLAND_SLEEPING) {
                body.setLinearVelocity(btVector3(0, 0, 0));
                body.setAngularVelocity(btVector3(0, 0, 0));
                continue;
            }
            btScalar span = body.getDeactivationTime();
            if (span == 0) {
                actor->travelled.setZero();
                actor->turned.setZero();
            }
            actor->travelled += body.getLinearVelocity() * timeStep;
            actor->turned += body.getAngularVelocity() * timeStep;
            span += timeStep;
            // A body plainly on the move is awake at once.
            const btScalar threshold = actor->sleepEnergy;
            if (kineticEnergyPerMass(body, body.getLinearVelocity(), body.getAngularVelocity()) >
                kMovingEnergies * threshold) {
                body.setActivationState(ACTIVE_TAG);
                body.setDeactivationTime(0);
                continue;
            }
            if (span < actor->wakeCounter) {
                body.setDeactivationTime(span);
                continue;
            }
            if (kineticEnergyPerMass(body, actor->travelled / span, actor->turned / span) >= threshold)
                body.setActivationState(ACTIVE_TAG);
            else if (state == ACTIVE_TAG)
                body.setActivationState(WANTS_DEACTIVATION);
            body.setDeactivationTime(0);
        }
    }

private:
    // In joules per kilogram: metres squared per second squared.
    static btScalar kineticEnergyPerMass(const btRigidBody& body, const btVector3& linear, const btVector3& angular)
    {
        const btVector3 turn = body.getWorldTransform().getBasis().transpose() * angular;
        const btVector3& inverseInertia = body.getInvInertiaDiagLocal();
        btScalar energy = btScalar(0.5) * linear.length2();
        for (int axis = 0; axis < 3; ++axis)
            if (inverseInertia[axis] > 0)
                energy += btScalar(0.5) * turn[axis] * turn[axis] / inverseInertia[axis] * body.getInvMass();
        return energy;
    }
};

struct ZentoPhysx::Scene {
    explicit Scene(const Settings& settings)
        : dispatcher(&configuration),
          filter(settings)
    {
        solver = std::make_unique<JointSolver>();
    }

    btDefaultCollisionConfiguration configuration;
    btCollisionDispatcher dispatcher;
    btDbvtBroadphase broadphase;
    PairFilter filter;
    std::unique_ptr<btConstraintSolver> solver;
    std::unique_ptr<World> world;
    std::unordered_map<unsigned long long, std::unique_ptr<Actor>> actors;
};

bool ZentoPhysx::PairFilter::needBroadphaseCollision(btBroadphaseProxy* proxy0, btBroadphaseProxy* proxy1) const
{
    const auto actorOf = [](const btBroadphaseProxy* proxy) {
        const auto* object = static_cast<const btCollisionObject*>(proxy->m_clientObject);
        return object ? static_cast<const Actor*>(object->getUserPointer()) : nullptr;
    };
    const Actor* a = actorOf(proxy0);
    const Actor* b = actorOf(proxy1);
    if (!a || !b)
        return true;
    if (a->collisionPool != b->collisionPool)
        return false;
    if (a->aggregate >= 0 && a->aggregate == b->aggregate && !a->selfCollision)
        return false;
    using State = RigidBodyAttributes::State;
    const bool kinematicA = a->state == State::Kinematic, kinematicB = b->state == State::Kinematic;
    const bool staticA = a->state == State::Static, staticB = b->state == State::Static;
    if (kinematicA && kinematicB)
        return !mSettings.kinematicKinematicFilter;
    if ((kinematicA && staticB) || (staticA && kinematicB))
        return !mSettings.staticKinematicFilter;
    return true;
}

ZentoPhysx::ZentoPhysx() : mSettings(std::make_unique<Settings>()) {}

ZentoPhysx::~ZentoPhysx()
{
    dropScene();
}

bool ZentoPhysx::isInitialized() const
{
    return mScene != nullptr;
}

void ZentoPhysx::release()
{
    dropScene();
    *mSettings = Settings();
}

void ZentoPhysx::dropScene()
{
    if (mScene && mScene->world) {
        for (const auto& constraint : mConstraints)
            mScene->world->removeConstraint(&constraint->joint());
        for (const auto& actor : mScene->actors)
            mScene->world->removeRigidBody(actor.second->body.get());
    }
    mConstraints.clear();
    mBodies.clear();
    mScene.reset();
    mDebugLines.clear();
    mFrozenBodies.clear();
}

void ZentoPhysx::setUseGpu(bool) {}

void ZentoPhysx::enablePvd(bool enable)
{
    mSettings->debugDrawing = enable;
}

void ZentoPhysx::setKinematicKinematicFilter(bool enable)
{
    mSettings->kinematicKinematicFilter = enable;
}

void ZentoPhysx::setStaticKinematicFilter(bool enable)
{
    mSettings->staticKinematicFilter = enable;
}

void ZentoPhysx::setPvdHost(const std::string&) {}

void ZentoPhysx::setPvdPort(int) {}

void ZentoPhysx::setPvdTimeout(unsigned int) {}

void ZentoPhysx::setSubSamples(unsigned int subSamples)
{
    mSettings->subSamples = subSamples;
}

void ZentoPhysx::setSolverType(short type)
{
    mSettings->solverType = type;
}

void ZentoPhysx::setGravity(const Imath::V3d& gravity)
{
    if (isFinite(Imath::V3f(gravity)))
        mSettings->gravity = gravity;
}

void ZentoPhysx::setFrictionOffsetThreshold(double) {}

void ZentoPhysx::setCcdMaxSeparation(double) {}

void ZentoPhysx::setSolverOffsetSlop(double slop)
{
    if (std::isfinite(slop))
        mSettings->solverOffsetSlop = std::max(0.0, slop);
}

void ZentoPhysx::setBounceThresholdVelocity(double velocity)
{
    if (std::isfinite(velocity))
        mSettings->bounceThresholdVelocity = std::max(0.0, velocity);
}

void ZentoPhysx::setFps(double fps)
{
    if (std::isfinite(fps) && fps > 0.0 && std::isfinite(1.0 / fps))
        mSettings->fps = fps;
}

void ZentoPhysx::setScale(double scale)
{
    mSettings->sceneScale = usableScale(scale, mSettings->sceneScale);
}

void ZentoPhysx::init()
{
    dropScene();
    mScene = std::make_unique<Scene>(*mSettings);
}

void ZentoPhysx::initScene()
{
    if (!mScene || mScene->world)
        return;
    Scene& scene = *mScene;
    scene.world = std::make_unique<World>(&scene.dispatcher, &scene.broadphase, scene.solver.get(), &scene.configuration);
    scene.world->getPairCache()->setOverlapFilterCallback(&scene.filter);
    scene.world->setGravity(toBullet(Imath::V3f(mSettings->gravity)));

    btContactSolverInfo& info = scene.world->getSolverInfo();
    // Raised by each body to the iterations it asks for.
    info.m_numIterations = 1;
    // Penetration is always pushed out apart from the bodies' velocities, so
    // that resolving it adds no energy: a ragdoll settles, and a bounce is
    // as high as restitution makes it.
    info.m_splitImpulsePenetrationThreshold = 0;
    const float scale = mSettings->sceneScale;
    if (mSettings->solverOffsetSlop)
        info.m_linearSlop = static_cast<btScalar>(*mSettings->solverOffsetSlop) * scale;
    if (mSettings->bounceThresholdVelocity)
        info.m_restitutionVelocityThreshold = static_cast<btScalar>(*mSettings->bounceThresholdVelocity) * scale;
}

RigidBody* ZentoPhysx::addRigidBody(const std::string& name, const RigidBodyAttributes& attributes,
                                    ZentoUtils::Mesh*, bool)
{
    if (!mScene || !mScene->world || attributes.type >= RigidBodyAttributes::ConvexMesh ||
        attributes.state >= RigidBodyAttributes::StateCount)
        return nullptr;
    return addActor(name, attributes);
}

namespace {

// What a dynamic body weighs and how it turns, in kilograms and metres.
struct MassProperties {
    btScalar mass = 0.0f;
    btVector3 inertia{0, 0, 0};
    // The centre of mass in the body's frame, where the record gives one.
    std::optional<btTransform> centre;
};

// Mass from the density and the shape's volume, or as given with useMass;
// nothing for a mass that the engine cannot divide by.
std::optional<MassProperties> massProperties(const RigidBodyAttributes& a, const Shape& shape, float scale)
{
    MassProperties made;
    made.mass = static_cast<btScalar>(a.useMass ? a.mass : a.density * shape.volume);
    if (!std::isfinite(made.mass) || made.mass <= 0.0f || !std::isfinite(1.0f / made.mass))
        return std::nullopt;
    shape.shape->calculateLocalInertia(made.mass, made.inertia);
    if (!a.useMass)
        return made;
    const Imath::V3f given(a.massSpaceInertiaTensor);
    if (isFinite(given) && given.x > 0.0f && given.y > 0.0f && given.z > 0.0f)
        made.inertia = toBullet(given);
    const auto centre = rigidTransform(Imath::M44f(a.cMassLocalPose), scale);
    if (centre && !(*centre == btTransform::getIdentity()))
        made.centre = centre;
    return made;
}

} // namespace

std::optional<ZentoPhysx::BodyMeasure> ZentoPhysx::measure(const RigidBodyAttributes& attributes, double sceneScale)
{
    const float scale = usableScale(sceneScale, Settings().sceneScale);
    const std::optional<Shape> shape = makeShape(attributes, scale);
    if (!shape)
        return std::nullopt;
    BodyMeasure measured;
    measured.thickness = shape->thickness;
    measured.raisedToMinimum = shape->raised;
    if (const std::optional<MassProperties> mass = massProperties(attributes, *shape, scale))
        measured.mass = mass->mass;
    return measured;
}

namespace {

// Damping, start velocities, sleeping and sweeping of a dynamic body.
void setDynamicMotion(btRigidBody& body, const RigidBodyAttributes& a, const Shape& shape, float scale)
{
    body.setDamping(static_cast<btScalar>(std::min(1.0, nonNegative(a.linearDamping))),
                    static_cast<btScalar>(std::min(1.0, nonNegative(a.angularDamping))));
    const Imath::V3f linear(a.linearVelocity), angular(a.angularVelocity);
    if (isFinite(linear))
        body.setLinearVelocity(toBullet(linear * scale));
    if (isFinite(angular))
        body.setAngularVelocity(toBullet(angular));
    body.setRollingFriction(static_cast<btScalar>(ZentoPhysx::kRollingResistance) * shape.radius);
    body.setSpinningFriction(static_cast<btScalar>(ZentoPhysx::kSpinningResistance) * shape.radius);
    // Fast bodies are swept, so that a thin limb does not pass through the ground in one step.
    body.setCcdMotionThreshold(0.5f * shape.thickness);
    body.setCcdSweptSphereRadius(0.4f * shape.thickness);
}

} // namespace

RigidBody* ZentoPhysx::addActor(const std::string& name, const RigidBodyAttributes& a)
{
    using Attributes = RigidBodyAttributes;
    const float scale = mSettings->sceneScale;
    std::optional<Shape> shape = makeShape(a, scale);
    Imath::Quatf rotation = a.rotation;
    if (!shape || !isFinite(a.translation) || !std::isfinite(rotation.length()) || rotation.length() == 0.0f)
        return nullptr;
    const btTransform pose(toBullet(rotation.normalize()), toBullet(a.translation * scale));

    auto actor = std::make_unique<Actor>();
    // A plane is infinite and can only stand still.
    actor->state = a.type == Attributes::Plane ? static_cast<unsigned short>(Attributes::Static) : a.state;
    const bool dynamic = actor->state == Attributes::Dynamic;
    MassProperties mass;
    if (dynamic) {
        const std::optional<MassProperties> given = massProperties(a, *shape, scale);
        if (!given)
            return nullptr;
        mass = *given;
    }
    actor->shape = std::move(shape->shape);
    btCollisionShape* bodyShape = actor->shape.get();
    if (mass.centre) {
        // Bullet moves a body about the origin of its shape, so the shape is
        // hung into a compound at the centre of mass.
        actor->centreOfMass = *mass.centre;
        actor->massShape = std::make_unique<btCompoundShape>();
        actor->massShape->addChildShape(mass.centre->inverse(), actor->shape.get());
        bodyShape = actor->massShape.get();
    }

    btRigidBody::btRigidBodyConstructionInfo info(mass.mass, nullptr, bodyShape, mass.inertia);
    info.m_startWorldTransform = pose * actor->centreOfMass;
    // Bullet has one friction coefficient: the sliding one.
    info.m_friction = static_cast<btScalar>(nonNegative(a.dynamicFriction));
    info.m_restitution = static_cast<btScalar>(std::clamp(finiteOr(a.restitution, 0.0), 0.0, 1.0));
    if (actor->state == Attributes::Kinematic) {
        actor->motionState = std::make_unique<btDefaultMotionState>(info.m_startWorldTransform);
        info.m_motionState = actor->motionState.get();
    }
    actor->body = std::make_unique<btRigidBody>(info);
    btRigidBody& body = *actor->body;
    body.setContactProcessingThreshold(static_cast<btScalar>(nonNegative(a.contactOffset)) * scale +
                                       body.getCollisionShape()->getMargin());
    if (actor->state == Attributes::Kinematic) {
        body.setCollisionFlags(body.getCollisionFlags() | btCollisionObject::CF_KINEMATIC_OBJECT);
        body.setActivationState(DISABLE_DEACTIVATION);
    } else if (dynamic) {
        setDynamicMotion(body, a, *shape, scale);
        actor->maxAngularVelocity = static_cast<float>(nonNegative(a.maxAngularVelocity));
        // PhysX's energies are per kilogram at its tolerance scale of one
        // metre: joules per kilogram here, whatever the scene scale.
        actor->sleepEnergy = static_cast<btScalar>(nonNegative(a.sleepThreshold));
        actor->wakeCounter = static_cast<btScalar>(nonNegative(a.wakeCounter));
    }
    actor->name = name;
    actor->collisionPool = a.collisionPool;
    actor->solverIterations = std::clamp(a.solverIteratorCount, 1, 255);
    return &addToWorld(std::move(actor), a);
}

RigidBody& ZentoPhysx::addToWorld(std::unique_ptr<Actor> actor, const RigidBodyAttributes& a)
{
    const unsigned long long id = ++mLastId;
    btRigidBody& body = *actor->body;
    actor->id = id;
    actor->lastFinite = body.getWorldTransform();
    body.setUserPointer(actor.get());

    // Bullet iterates the whole world alike: as often as the most demanding body asks.
    btContactSolverInfo& solverInfo = mScene->world->getSolverInfo();
    solverInfo.m_numIterations =
        std::max(solverInfo.m_numIterations, mSettings->iterationsPerStep(actor->solverIterations));
    mScene->world->addRigidBody(&body);

    RigidBody& record = mBodies[id];
    record.state = actor->state;
    record.kinematicTarget = a.translation;
    record.rotatePivot = a.rotatePivot;
    record.scale = a.scale;
    record.scalePivot = a.scalePivot;
    record.scalePivotTranslate = a.scalePivotTranslate;
    record.rotatePivotTranslate = a.rotatePivotTranslate;
    record.id = id;
    record.aggregate = a.aggregate;
    record.mBody = &body;
    const btTransform bodyInMass = actor->centreOfMass.inverse();
    record.mMassOffset = fromBullet(bodyInMass.getOrigin());
    record.mMassRotation = fromBullet(bodyInMass.getRotation());
    record.mSceneScale = mSettings->sceneScale;

    mScene->actors.emplace(id, std::move(actor));
    return record;
}

RigidBodyConstraint* ZentoPhysx::addRigidBodyConstraint(const std::string& name,
                                                        const RigidBodyConstraintAttributes& a, RigidBody* parent,
                                                        const Imath::M44f& parentFrame, RigidBody* child,
                                                        const Imath::M44f& childFrame, bool)
{
    if (!mScene || !mScene->world)
        return nullptr;
    btRigidBody* parentBody = parent ? parent->mBody : nullptr;
    btRigidBody* childBody = child ? child->mBody : nullptr;
    if (parentBody == childBody)
        return nullptr;
    const float scale = mSettings->sceneScale;
    std::optional<btTransform> parentLocal = rigidTransform(parentFrame, scale);
    std::optional<btTransform> childLocal = rigidTransform(childFrame, scale);
    if (!parentLocal || !childLocal)
        return nullptr;

    // Frames are given relative to the body; Bullet takes them relative to
    // the centre of mass. The fixed world stands at the identity.
    auto massFrame = [](btRigidBody* body, const btTransform& frame) {
        return body ? static_cast<const Actor*>(body->getUserPointer())->centreOfMass.inverse() * frame : frame;
    };
    btRigidBody& first = parentBody ? *parentBody : btTypedConstraint::getFixedBody();
    btRigidBody& second = childBody ? *childBody : btTypedConstraint::getFixedBody();
    std::unique_ptr<btTypedConstraint> joint = JointBuilder(scale, mSettings->stepTime())
                                                   .build(a, first, massFrame(parentBody, *parentLocal), second,
                                                          massFrame(childBody, *childLocal));
    if (!joint)
        return nullptr;

    // A force held for one step is the impulse that breaks the joint.
    if (a.breakable && a.breakForce >= 0.0 && std::isfinite(a.breakForce))
        joint->setBreakingImpulseThreshold(static_cast<btScalar>(a.breakForce * mSettings->stepTime()));
    mScene->world->addConstraint(joint.get(), !a.enableCollision);
    // A joint made while a body sleeps must not leave it asleep. A drive
    // animates its bodies, however slowly: they never sleep.
    const bool driven = JointBuilder::isDriven(*joint);
    for (btRigidBody* body : {&first, &second}) {
        body->activate();
        if (driven && body->getInvMass() > 0.0f)
            body->setActivationState(DISABLE_DEACTIVATION);
    }

    mConstraints.push_back(std::make_unique<RigidBodyConstraint>(
        name, a.constraintType, parentBody ? parent->id : 0, childBody ? child->id : 0, std::move(joint)));
    return mConstraints.back().get();
}

void ZentoPhysx::setJointIterations(unsigned long long id, int iterations)
{
    const std::vector<unsigned long long> joined = joinedTo(id);
    for (const auto& constraint : mConstraints)
        if (std::find(joined.begin(), joined.end(), constraint->childId) != joined.end() ||
            std::find(joined.begin(), joined.end(), constraint->parentId) != joined.end())
            constraint->joint().setOverrideNumSolverIterations(iterations);
}

std::vector<unsigned long long> ZentoPhysx::joinedTo(unsigned long long id) const
{
    std::vector<unsigned long long> reached{id};
    for (size_t next = 0; next < reached.size(); ++next)
        for (const auto& constraint : mConstraints) {
            if (!constraint->joint().isEnabled())
                continue;
            const unsigned long long from = reached[next];
            const unsigned long long other = constraint->parentId == from ? constraint->childId
                                             : constraint->childId == from ? constraint->parentId
                                                                            : 0;
            if (other != 0 && std::find(reached.begin(), reached.end(), other) == reached.end())
                reached.push_back(other);
        }
    return reached;
}

double ZentoPhysx::pulledMass(unsigned long long id) const
{
    double mass = 0.0;
    for (unsigned long long each : joinedTo(id)) {
        const auto found = mScene->actors.find(each);
        if (found != mScene->actors.end() && found->second->body->getInvMass() > 0.0f)
            mass += 1.0 / found->second->body->getInvMass();
    }
    return mass;
}

RigidBodyConstraint* ZentoPhysx::addDrag(const std::string& name, RigidBody* handle, RigidBody* body,
                                         const Imath::V3f& point, const DragSettings& settings)
{
    const Imath::V3f at = point * mSettings->sceneScale;
    if (!mScene || !mScene->world || !handle || !body || !handle->mBody || !body->mBody || handle == body ||
        !isFinite(at))
        return nullptr;
    btRigidBody& handleBody = *handle->mBody;
    btRigidBody& grabbed = *body->mBody;
    const double mass = pulledMass(body->id);
    const auto stiffness = static_cast<btScalar>(mass * kDragFrequency * kDragFrequency);
    const auto damping = static_cast<btScalar>(2.0 * mass * kDragFrequency);
    const auto forceLimit = static_cast<btScalar>(mass * nonNegative(settings.acceleration));
    auto joint = std::make_unique<DragSpring>(handleBody, grabbed,
                                              handleBody.getCenterOfMassTransform().inverse() * toBullet(at),
                                              grabbed.getCenterOfMassTransform().inverse() * toBullet(at), stiffness,
                                              damping, forceLimit);
    mScene->world->addConstraint(joint.get(), true);
    grabbed.activate();
    mConstraints.push_back(std::make_unique<RigidBodyConstraint>(name, RigidBodyConstraintAttributes::Distance,
                                                                 handle->id, body->id, std::move(joint)));
    // The spring itself keeps the world's iterations: solved less often
    // than the joints, they have the last word.
    setJointIterations(body->id, kDragJointIterations);
    mConstraints.back()->joint().setOverrideNumSolverIterations(kWorldIterations);
    return mConstraints.back().get();
}

void ZentoPhysx::addAggregates(const std::unordered_map<int, std::vector<int>>& aggregates,
                               const std::unordered_map<int, bool>& selfCollision, unsigned long long, bool)
{
    if (!mScene || !mScene->world)
        return;
    for (const auto& aggregate : aggregates) {
        const auto self = selfCollision.find(aggregate.first);
        for (int member : aggregate.second) {
            const auto found = mScene->actors.find(static_cast<unsigned int>(member));
            if (found == mScene->actors.end())
                continue;
            Actor& actor = *found->second;
            actor.aggregate = aggregate.first;
            actor.selfCollision = self == selfCollision.end() || self->second;
            // Pairs made before the body joined its aggregate are dropped by
            // adding it again, through the filter.
            mScene->world->removeRigidBody(actor.body.get());
            mScene->world->addRigidBody(actor.body.get());
        }
    }
}

std::unordered_map<unsigned long long, RigidBody>& ZentoPhysx::rigidBodies()
{
    return mBodies;
}

void ZentoPhysx::removeConstraintsOn(unsigned long long id)
{
    const auto on = [id](const std::unique_ptr<RigidBodyConstraint>& c) { return c->parentId == id || c->childId == id; };
    for (const auto& constraint : mConstraints)
        if (on(constraint)) {
            constraint->joint().getRigidBodyA().activate();
            constraint->joint().getRigidBodyB().activate();
            mScene->world->removeConstraint(&constraint->joint());
        }
    mConstraints.erase(std::remove_if(mConstraints.begin(), mConstraints.end(), on), mConstraints.end());
}

void ZentoPhysx::removeRigidBody(unsigned long long id)
{
    mBodies.erase(id);
    if (!mScene)
        return;
    const auto found = mScene->actors.find(id);
    if (found == mScene->actors.end())
        return;
    for (const auto& constraint : mConstraints)
        if (constraint->parentId == id && dynamic_cast<const DragSpring*>(&constraint->joint()))
            setJointIterations(constraint->childId, kWorldIterations);
    removeConstraintsOn(id);
    mScene->world->removeRigidBody(found->second->body.get());
    mScene->actors.erase(found);
}

std::vector<ZentoPhysx::Travel> ZentoPhysx::kinematicTravels() const
{
    std::vector<Travel> travels;
    for (const auto& entry : mScene->actors) {
        const Actor& actor = *entry.second;
        const auto record = mBodies.find(entry.first);
        if (actor.state != RigidBodyAttributes::Kinematic || record == mBodies.end())
            continue;
        const Imath::V3f target = record->second.kinematicTarget * mSettings->sceneScale;
        if (!isFinite(target))
            continue;
        btTransform start;
        actor.motionState->getWorldTransform(start);
        const btTransform end((start * actor.centreOfMass.inverse()).getBasis(), toBullet(target));
        const btVector3 endOrigin = (end * actor.centreOfMass).getOrigin();
        if (endOrigin != start.getOrigin())
            travels.push_back({actor.id, actor.motionState.get(), start, endOrigin});
    }
    return travels;
}

void ZentoPhysx::wakeBodiesJoinedTo(const std::vector<Travel>& travels)
{
    // Bullet wakes what a kinematic body touches, but not what it is joined to.
    for (const auto& constraint : mConstraints)
        for (const Travel& travel : travels)
            if (constraint->parentId == travel.id || constraint->childId == travel.id) {
                constraint->joint().getRigidBodyA().activate();
                constraint->joint().getRigidBodyB().activate();
            }
}

bool ZentoPhysx::isDragged() const
{
    return std::any_of(mConstraints.begin(), mConstraints.end(), [](const auto& constraint) {
        return dynamic_cast<const DragSpring*>(&constraint->joint()) != nullptr;
    });
}

void ZentoPhysx::stepPhysics()
{
    if (!mScene || !mScene->world)
        return;
    btDiscreteDynamicsWorld& world = *mScene->world;
    const unsigned int factor = mSettings->solverType == PGS && isDragged() ? kDraggedSubSteps : 1u;
    const unsigned int steps = mSettings->steps() * factor;
    const auto stepTime = static_cast<btScalar>(mSettings->stepTime() / factor);

    // Kinematic bodies travel to their target in even parts over the frame,
    // so that what they push or pull meets a steady velocity.
    const std::vector<Travel> travels = kinematicTravels();
    wakeBodiesJoinedTo(travels);
    for (unsigned int step = 1; step <= steps; ++step) {
        const btScalar part = btScalar(step) / btScalar(steps);
        for (const Travel& travel : travels)
            travel.motion->setWorldTransform(
                btTransform(travel.start.getBasis(), travel.start.getOrigin().lerp(travel.end, part)));
        world.stepSimulation(stepTime, 0);
        guardActors();
    }
    collectDebugLines();
}

void ZentoPhysx::collectDebugLines()
{
    mDebugLines.clear();
    if (!mSettings->debugDrawing)
        return;
    LineCollector collector(mDebugLines, mSettings->sceneScale);
    btDiscreteDynamicsWorld& world = *mScene->world;
    world.setDebugDrawer(&collector);
    world.debugDrawWorld();
    world.setDebugDrawer(nullptr);
    // Bullet does not know how to draw a joint of our own: the hand's drag among them.
    for (const auto& constraint : mConstraints)
        if (const auto* own = dynamic_cast<const OwnConstraint*>(&constraint->joint()))
            own->draw(collector);
}

void ZentoPhysx::guardActors()
{
    for (const auto& entry : mScene->actors) {
        Actor& actor = *entry.second;
        if (actor.state != RigidBodyAttributes::Dynamic)
            continue;
        btRigidBody& body = *actor.body;
        if (isFinite(body.getWorldTransform()) && isFinite(body.getLinearVelocity()) &&
            isFinite(body.getAngularVelocity())) {
            actor.lastFinite = body.getWorldTransform();
            const btScalar spin = body.getAngularVelocity().length();
            if (actor.maxAngularVelocity > 0.0f && spin > actor.maxAngularVelocity)
                body.setAngularVelocity(body.getAngularVelocity() * (actor.maxAngularVelocity / spin));
            continue;
        }
        // Frozen where it last was, as a static body that its joints no longer move.
        mScene->world->removeRigidBody(&body);
        body.setWorldTransform(actor.lastFinite);
        body.setLinearVelocity(btVector3(0, 0, 0));
        body.setAngularVelocity(btVector3(0, 0, 0));
        body.setMassProps(0.0f, btVector3(0, 0, 0));
        body.setCollisionFlags(body.getCollisionFlags() | btCollisionObject::CF_STATIC_OBJECT);
        mScene->world->addRigidBody(&body);
        for (const auto& constraint : mConstraints)
            if (constraint->parentId == actor.id || constraint->childId == actor.id)
                constraint->joint().setEnabled(false);
        actor.state = RigidBodyAttributes::Static;
        if (const auto record = mBodies.find(actor.id); record != mBodies.end())
            record->second.state = RigidBodyAttributes::Static;
        mFrozenBodies.push_back(actor.name);
        std::cerr << "Physics: the pose of " << actor.name << " is no longer finite; the body is frozen\n";
    }
}

void ZentoPhysx::moveBodies(const Imath::V3f& offset)
{
    const Imath::V3f metres = offset * mSettings->sceneScale;
    if (!mScene || !mScene->world || !isFinite(metres))
        return;
    for (const auto& entry : mScene->actors) {
        Actor& actor = *entry.second;
        btRigidBody& body = *actor.body;
        if (isPlane(body))
            continue;
        btTransform pose = body.getWorldTransform();
        pose.setOrigin(pose.getOrigin() + toBullet(metres));
        body.setWorldTransform(pose);
        body.setInterpolationWorldTransform(pose);
        actor.lastFinite = pose;
        if (actor.motionState)
            actor.motionState->setWorldTransform(pose);
        if (const auto record = mBodies.find(actor.id); record != mBodies.end())
            record->second.kinematicTarget += offset;
        mScene->world->updateSingleAabb(&body);
        body.activate();
    }
}

std::optional<float> ZentoPhysx::lowestPoint(const Imath::V3f& up) const
{
    if (!mScene || !mScene->world)
        return std::nullopt;
    const btVector3 direction = toBullet(up).normalized();
    std::optional<float> lowest;
    for (const auto& entry : mScene->actors) {
        const btRigidBody& body = *entry.second->body;
        if (isPlane(body))
            continue;
        const float bottom =
            lowestAlong(*body.getCollisionShape(), body.getWorldTransform(), direction) / mSettings->sceneScale;
        lowest = std::min(lowest.value_or(bottom), bottom);
    }
    return lowest;
}

std::vector<ZentoPhysx::Overlap> ZentoPhysx::overlappingBodies(double depth)
{
    std::vector<Overlap> overlaps;
    if (!mScene || !mScene->world)
        return overlaps;
    mScene->world->performDiscreteCollisionDetection();
    btDispatcher& dispatcher = *mScene->world->getDispatcher();
    for (int index = 0; index < dispatcher.getNumManifolds(); ++index) {
        const btPersistentManifold& manifold = *dispatcher.getManifoldByIndexInternal(index);
        const auto* a = static_cast<const Actor*>(manifold.getBody0()->getUserPointer());
        const auto* b = static_cast<const Actor*>(manifold.getBody1()->getUserPointer());
        if (!a || !b)
            continue;
        double deepest = 0.0;
        for (int point = 0; point < manifold.getNumContacts(); ++point)
            deepest = std::max(deepest, -double(manifold.getContactPoint(point).getDistance()));
        if (deepest > depth)
            overlaps.push_back({std::min(a->id, b->id), std::max(a->id, b->id), deepest});
    }
    return overlaps;
}

std::vector<RigidBodyConstraint*> ZentoPhysx::constraints() const
{
    std::vector<RigidBodyConstraint*> list;
    for (const auto& constraint : mConstraints)
        list.push_back(constraint.get());
    return list;
}

const std::vector<DebugLine>& ZentoPhysx::debugLines() const
{
    return mDebugLines;
}

const std::vector<std::string>& ZentoPhysx::frozenBodies() const
{
    return mFrozenBodies;
}

int ZentoPhysx::solverIterations() const
{
    return mScene && mScene->world ? mScene->world->getSolverInfo().m_numIterations : 0;
}

btDiscreteDynamicsWorld* ZentoPhysx::world()
{
    return mScene ? mScene->world.get() : nullptr;
}

} // namespace Zento
