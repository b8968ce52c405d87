#pragma once

#include <string>
#include <vector>

class ZentoSceneGraph;

// What a technical artist should know about a ragdoll before it reaches the
// game: the findings of a look at the scene as it stands, and the figures of a
// drop test. Both read the bodies and constraints of the whole scene.
namespace RagdollCheck {

enum class Severity { Warning, Error };

// The kinds of finding, as the command-line tool prints them in JSON.
constexpr const char* kTinyBody = "tinyBody";                   // a body of zero or tiny size
constexpr const char* kUnjoinedConstraint = "unjoinedConstraint"; // a constraint without a child or parent body
constexpr const char* kSelfConstraint = "selfConstraint";       // a constraint that joins a body to itself
constexpr const char* kMassRatio = "massRatio";                 // jointed bodies whose masses differ more than 10 to 1
constexpr const char* kNarrowLimit = "narrowLimit";             // a swing or twist limit under 5 degrees
constexpr const char* kPoseOutsideLimits = "poseOutsideLimits"; // a joint whose bind pose lies outside its limits
constexpr const char* kBindPoseOverlap = "bindPoseOverlap";     // bodies that overlap in the bind pose and collide
constexpr const char* kNonFinite = "nonFinite";                 // a node with a value that is not finite
constexpr const char* kDropNonFinite = "dropNonFinite";         // the drop test made a body non-finite
constexpr const char* kDropUnsettled = "dropUnsettled";         // the drop test did not come to rest
constexpr const char* kDropLimit = "dropLimit";                 // a joint went far past its limits in the drop test
constexpr const char* kDropSeparation = "dropSeparation";       // a joint's anchors came far apart in the drop test

struct Finding {
    Severity severity = Severity::Error;
    // One of the kinds above.
    std::string kind;
    // The full paths of the nodes concerned, the most telling first.
    std::vector<std::string> nodes;
    // One sentence that names the nodes by their short names and says what is wrong and what it does.
    std::string message;
};

// The findings of the scene as it stands, errors and warnings, in path order of their first node.
std::vector<Finding> check(const ZentoSceneGraph& graph);

struct DropTestSettings {
    // Metres between the ground and the lowest point of the ragdoll at the release.
    double height = 1.0;
    // Seconds simulated after the release.
    double seconds = 5.0;
};

struct DropTest {
    // False when any body's pose or velocity went non-finite.
    bool finite = true;
    // Seconds from the release until every body sleeps; negative when that did not happen within the test.
    double secondsToRest = -1.0;
    // The most that any joint went past its swing or twist limits at any frame, degrees, and that constraint's path.
    double worstLimitDegrees = 0.0;
    std::string worstLimitConstraint;
    // The farthest that any joint's two anchors came apart at any frame, metres, and that constraint's path.
    double worstSeparation = 0.0;
    std::string worstSeparationConstraint;
};

// Simulates the scene's ragdoll from its bind pose raised to settings.height
// above the ground (the scene's ground, or a ground plane below the ragdoll
// when it has none) with the scene's solver settings (the defaults when it has
// no solver). The scene is left as it was.
DropTest dropTest(ZentoSceneGraph& graph, const DropTestSettings& settings = {});

// The drop test's figures as findings: non-finite is an error; not at rest,
// limits passed by more than 15 degrees, anchors more than 2 cm apart are warnings.
std::vector<Finding> findings(const DropTest& test);

bool hasError(const std::vector<Finding>& findings);

} // namespace RagdollCheck
