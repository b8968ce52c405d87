#include "GuiTestSupport.h"

#include "AttributeEditor.h"
#include "ConstraintNode.h"
#include "EnumMetadataWidget.h"
#include "FieldsMetadataWidget.h"
#include "MultiScaleCommand.h"
#include "Outliner.h"
#include "RigidBodyAttributes.h"
#include "SolverNode.h"
#include "StyleSheet.h"
#include "TypedArrayMetadata.h"
#include "ZentoRagdollBuilder.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QScrollArea>
#include <QScrollBar>

#include <gtest/gtest.h>

using Zento::RigidBodyAttributes;

namespace {

// The window with a capsule at /Joint/Body and a constraint beside it.
struct EditedScene {
    EditedScene()
    {
        window.resize(1100, 700);
        EXPECT_TRUE(showExposed(window));
        window.sceneGraph.createSolver();
        auto joint = std::make_shared<TransformNode>(ZentoCore::NodePath("/Joint"));
        window.sceneGraph.addNode(joint, "");
        body = addBody(window.sceneGraph, "/Joint/Body", Imath::V3d(1, 2, 3));
        body->attributes.typedEntry<int>("type")->set(RigidBodyAttributes::Capsule);
        window.sceneGraph.updateGeometry(body->path);
        constraint = std::make_shared<ConstraintNode>(ZentoCore::NodePath("/Joint/Constraint"));
        window.sceneGraph.addNode(constraint, "/Joint");
        window.updateNodeList();
    }

    void select(const std::string& path)
    {
        window.outliner->selectNodes({path});
        QMetaObject::invokeMethod(window.outliner, "selectionUpdated");
    }

    // The texts of the rows' labels in order, headers as "@" and their word.
    QStringList rowLabels() const
    {
        QStringList labels;
        if (editor().attributeContainers.empty())
            return labels;
        auto* grid = static_cast<QGridLayout*>(editor().attributeContainers.front()->layout());
        for (int row = 0; row < grid->rowCount(); ++row)
            if (QLayoutItem* item = grid->itemAtPosition(row, 0))
                if (auto* label = qobject_cast<QLabel*>(item->widget()))
                    labels << QString(label->text()).replace("<b>", "@").remove("</b>");
        return labels;
    }

    // Types the text into the field and presses Enter, as a user does.
    static void type(QLineEdit* field, const QString& text)
    {
        field->setFocus();
        field->selectAll();
        QTest::keyClicks(field, text);
        QTest::keyClick(field, Qt::Key_Return);
    }

    AttributeEditor& editor() const { return *window.attributeEditor; }

    template <typename Widget>
    Widget* row(const char* key) const
    {
        return editor().findChild<Widget*>(key);
    }

    QApplication& application = guiApplication();
    ZentoRagdollBuilder window;
    std::shared_ptr<RigidBodyNode> body;
    std::shared_ptr<ConstraintNode> constraint;
};

QStringList listedKeys(const BaseNode& node)
{
    QStringList keys;
    for (const std::string& key :
         node.attributeHints.typedEntryAs<ZentoCore::TypedArrayMetadata<std::string>>("__list__")->get())
        if (node.attributes.getEntry(key) || key[0] == '@')
            keys << QString::fromStdString(key);
    return keys;
}

} // namespace

TEST(AttributeEditor, ShowsTheSelectedNodeRowByRowWithoutAStepOfHistory)
{
    EditedScene scene;
    scene.select("/Joint/Body");
    EXPECT_EQ(scene.window.commandStack.commands.size(), 1u) << "the selection only: filling pushes nothing";
    AttributeEditor& editor = scene.editor();
    EXPECT_EQ(editor.nameWidget->text(), "Body");
    EXPECT_TRUE(editor.visibleBox->isChecked());
    EXPECT_EQ(editor.translate(), Imath::V3d(1, 2, 3));
    EXPECT_EQ(scene.rowLabels(), listedKeys(*scene.body));
    EXPECT_EQ(scene.row<EnumMetadataWidget>("type")->valueAsString(), "Capsule");

    scene.select("/Joint/Constraint");
    const QStringList constraintRows = scene.rowLabels();
    EXPECT_EQ(constraintRows, listedKeys(*scene.constraint));
    EXPECT_GT(constraintRows.filter(QRegExp("^@.*[Dd]rive")).size(), 5) << "a group for each drive";
    // A constraint's rows do not fit: the dock scrolls.
    EXPECT_TRUE(QTest::qWaitFor([&] { return editor.scrollArea->verticalScrollBar()->isVisible(); }, 5000));

    scene.select("/Solver");
    const QStringList solverRows = scene.rowLabels();
    EXPECT_FALSE(solverRows.contains("enableDynamic"));
    EXPECT_FALSE(solverRows.contains("useGpu"));
    EXPECT_TRUE(solverRows.contains("subSamples"));
    EXPECT_EQ(scene.window.commandStack.commands.size(), 3u);
}

TEST(AttributeEditor, EditsBecomeCommandsThatUndo)
{
    EditedScene scene;
    ZentoRagdollBuilder& window = scene.window;
    scene.select("/Joint/Body");
    const size_t steps = window.commandStack.commands.size();

    EditedScene::type(scene.row<DoubleMetadataWidget>("mass")->fields[0], "12.5");
    ASSERT_EQ(window.commandStack.commands.size(), steps + 1);
    EXPECT_EQ(scene.body->attributes.typedEntry<double>("mass")->get(), 12.5);
    window.commandStack.undo();
    EXPECT_EQ(scene.body->attributes.typedEntry<double>("mass")->get(), 1.0);

    // Another shape: the drawn mesh is built anew.
    const Imath::Box3d capsule = window.sceneGraph.delegate().GetExtent(scene.body->path);
    scene.row<EnumMetadataWidget>("type")->box->setCurrentIndex(RigidBodyAttributes::Sphere);
    EXPECT_EQ(scene.body->attributes.typedEntry<int>("type")->get(), RigidBodyAttributes::Sphere);
    EXPECT_NE(window.sceneGraph.delegate().GetExtent(scene.body->path).max, capsule.max);

    // Translate x moves the node; pivot z is connected twice and gives two steps.
    const size_t before = window.commandStack.commands.size();
    QDoubleSpinBox* x = scene.editor().translateBoxes[0];
    x->setFocus();
    x->selectAll();
    QTest::keyClicks(x, "4");
    QTest::keyClick(x, Qt::Key_Return);
    EXPECT_EQ(scene.body->translation, Imath::V3d(4, 2, 3));
    EXPECT_EQ(window.commandStack.commands.size(), before + 1);
    scene.editor().pivotBoxes[2]->setValue(0.5);
    EXPECT_EQ(scene.body->pivot.z, 0.5);
    EXPECT_EQ(window.commandStack.commands.size(), before + 3);
}

TEST(AttributeEditor, NumberFieldsTakePlainDecimalsOnly)
{
    guiApplication();
    DoubleMetadataWidget widget("mass");
    const QValidator* validator = widget.fields[0]->validator();
    for (QString text : {"1e5", ".", "-", "1.2.3"}) {
        int at = 0;
        EXPECT_NE(validator->validate(text, at), QValidator::Acceptable) << text.toStdString();
    }
    for (QString text : {"-0.25", "+3", ".5", "42"}) {
        int at = 0;
        EXPECT_EQ(validator->validate(text, at), QValidator::Acceptable) << text.toStdString();
    }
    // Six significant digits on the way through a row.
    widget.setValue(1.0 / 3.0);
    EXPECT_EQ(widget.valueAsString(), "0.333333");
    EulerMetadataWidget euler("rotation");
    euler.setValue(Imath::Eulerd(M_PI / 2, 0.0, M_PI, Imath::Eulerd::ZYX));
    EXPECT_EQ(euler.valueAsString(), "90 0 180") << "degrees";
    EXPECT_EQ(euler.value().order(), Imath::Eulerd::XYZ);
    QuaternionMetadataWidget quaternion("q");
    quaternion.setValue(Imath::Quatd(0.5, 1, 2, 3));
    EXPECT_EQ(quaternion.valueAsString(), "1 2 3 0.5") << "the real part last";
}

TEST(AttributeEditor, TheDimensionRowFollowsAScaleWithoutARebuild)
{
    EditedScene scene;
    scene.select("/Joint/Body");
    const QWidget* container = scene.editor().attributeContainers.front();
    const Imath::V3d dimension = scene.body->attributes.typedEntry<Imath::V3d>("dimension")->get();
    scene.window.commandStack.push(std::make_shared<MultiScaleCommand>(
        &scene.window.sceneGraph, std::vector<std::string>{"/Joint/Body"},
        std::vector<Imath::M44d>{scene.body->localMatrix()}, std::vector<Imath::V3d>{dimension}, Imath::V3d(2, 3, 2)));
    QMetaObject::invokeMethod(scene.window.viewport, "transformUpdated");
    EXPECT_EQ(scene.editor().attributeContainers.front(), container) << "no rebuild";
    EXPECT_TRUE(scene.row<Vector3MetadataWidget>("dimension")->value().equalWithAbsError(
        scene.body->attributes.typedEntry<Imath::V3d>("dimension")->get(), 1e-6))
        << "as six digits show it";
    EXPECT_NE(scene.row<Vector3MetadataWidget>("dimension")->value(), dimension);

    // The dock in the dark style, for a look at it.
    qApp->setStyleSheet(loadStyleSheet());
    QTest::qWait(100);
    const QString picture = QString(ZENTO_TEST_OUTPUT_DIR) + "/attribute_editor.png";
    EXPECT_TRUE(scene.window.grab().save(picture));
    qApp->setStyleSheet(QString());
}
