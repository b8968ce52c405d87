#include "AutoRig.h"
#include "BaseCommand.h"
#include "CharacterImport.h"
#include "ConstraintNode.h"
#include "JointNode.h"
#include "MeshNode.h"
#include "RigidBodyNode.h"
#include "SolverNode.h"
#include "ZentoSceneGraph.h"

#include <gtest/gtest.h>
#include <Imath/ImathMatrixAlgo.h>

#include <iostream>

using Imath::V3d;

TEST(AutoRigExplore, Files)
{
    const char* env = getenv("AUTORIG_FILES");
    if (!env)
        GTEST_SKIP();
    std::stringstream list(env);
    std::string model;
    while (std::getline(list, model, ',')) {
        const bool skinned = model.back() == '+';
        if (skinned)
            model.pop_back();
        const std::string file = "/usr/share/assimp/models/" + model;
        ZentoSceneGraph graph;
        graph.createSolver();
        std::string error;
        std::vector<std::string> names = CharacterImport::loadSkeleton(graph, file, &error);
        ASSERT_FALSE(names.empty()) << error;
        std::string root;
        for (const auto& n : names)
            if (n.rfind("/Skeleton/", 0) == 0 && n.find('/', 10) == std::string::npos) { root = n; break; }
        std::vector<std::string> skin;
        if (skinned) {
            for (const auto& n : CharacterImport::loadMesh(graph, file, &error)) {
                auto node = graph.node(n);
                if (node && node->typeId() == MeshNode::kTypeId && std::find(skin.begin(), skin.end(), n) == skin.end()) {
                    skin.push_back(n);
                    auto j = static_cast<MeshNode&>(*node).skinJoints();
                    std::cout << "mesh " << n << " points " << static_cast<MeshNode&>(*node).mesh()->points.size() << " skinJoints " << (j ? j->size() : 0) << "\n";
                }
            }
        }
        AutoRig::Result result;
        auto command = AutoRig::build(graph, root, skin, result, {}, &error);
        std::cout << "== " << model << " root " << root << " height " << result.skeletonHeight << " scale " << result.sceneScale << " bodies " << result.bodies.size() << " constraints " << result.constraints.size() << " merged " << result.mergedJoints.size() << " " << error << "\n";
        if (!command) continue;
        command->execute();
        for (const auto& b : result.bodies) {
            auto node = graph.node(b);
            V3d d = node->attributes.typedEntry<V3d>("dimension")->get();
            V3d w = node->worldMatrix().translation();
            V3d sc; Imath::extractScaling(node->worldMatrix(), sc);
            std::cout << "  " << b.substr(b.rfind('/') + 1) << " r=" << d.x * sc.x * result.sceneScale << " hh=" << d.y * sc.x * result.sceneScale << " at " << w * result.sceneScale << "\n";
        }
        for (const auto& c : result.constraints) {
            auto node = graph.node(c);
            auto child = ConstraintNode::childBody(*node);
            auto parent = ConstraintNode::parentBody(*node, graph.nodes);
            std::cout << "  C " << c.substr(c.rfind('/') + 1) << " " << (child ? child->path.name() : "NONE") << " -> " << (parent ? parent->path.name() : "NONE") << "\n";
        }
        std::cout << "  merged:";
        for (const auto& m : result.mergedJoints) std::cout << " " << m.substr(m.rfind('/') + 1);
        std::cout << "\n";
    }
}
