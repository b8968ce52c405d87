// The attribute editor: the time from a selection change to a constraint's
// whole form shown (the window's refreshes and a viewport frame included),
// the time of the form alone against a plain Qt form of as many label and
// line edit rows, and the time of one refreshTransform, as during a drag.
// Prints one figure a line, medians.

#include "AttributeEditor.h"
#include "ConstraintNode.h"
#include "RigidBodyNode.h"
#include "ZentoRagdollBuilder.h"

#include <QApplication>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

constexpr int kRounds = 30;

double medianMilliseconds(const std::function<void()>& action, const std::function<void()>& prepare = [] {})
{
    std::vector<double> times;
    for (int round = 0; round < kRounds; ++round) {
        prepare();
        const auto start = std::chrono::steady_clock::now();
        action();
        times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// A grid of rows of a label and a line edit, built and shown as the editor builds its rows.
void buildPlainForm(QWidget& parent, int rows)
{
    delete parent.layout();
    qDeleteAll(parent.findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly));
    auto* container = new QWidget(&parent);
    auto* grid = new QGridLayout(container);
    for (int row = 0; row < rows; ++row) {
        grid->addWidget(new QLabel(QString::number(row), container), row, 0);
        grid->addWidget(new QLineEdit(QString::number(row * 0.5), container), row, 1);
    }
    container->show();
    QApplication::processEvents();
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    ZentoRagdollBuilder window;
    window.resize(1280, 800);
    window.show();
    QApplication::processEvents();
    auto body = std::make_shared<RigidBodyNode>(ZentoCore::NodePath("/Body"));
    auto constraint = std::make_shared<ConstraintNode>(ZentoCore::NodePath("/Body/Constraint"));
    window.sceneGraph.addNode(body, "");
    window.sceneGraph.addNode(constraint, "/Body");

    // Each round goes from the body to the constraint: the constraint's form is built anew.
    const auto selectBody = [&] {
        window.attributeEditor->setNode(*body);
        QApplication::processEvents();
    };
    const double show = medianMilliseconds(
        [&] {
            window.sceneGraph.setSelection({"/Body/Constraint"});
            QMetaObject::invokeMethod(&window, "updateSelection");
            QApplication::processEvents();
        },
        selectBody);
    const double build = medianMilliseconds(
        [&] {
            window.attributeEditor->setNode(*constraint);
            QApplication::processEvents();
        },
        selectBody);
    const int rows = int(window.attributeEditor->metadataWidgets.size());

    QWidget plain;
    plain.show();
    const double reference = medianMilliseconds([&] { buildPlainForm(plain, rows); });

    const double refresh = medianMilliseconds([&] {
        body->translation.x += 0.01;
        window.attributeEditor->refreshTransform(*body);
    });

    std::printf("form_rows %d\n", rows);
    std::printf("show_constraint_after_selection_ms %.2f\n", show);
    std::printf("build_constraint_form_ms %.2f\n", build);
    std::printf("plain_qt_form_same_rows_ms %.2f\n", reference);
    std::printf("build_ratio_to_plain_form %.2f\n", build / reference);
    std::printf("refresh_transform_ms %.3f\n", refresh);
    return 0;
}
