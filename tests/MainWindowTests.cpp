#include "StyleSheet.h"
#include "ZentoRagdollBuilder.h"

#include <QApplication>
#include <QImage>
#include <QLabel>
#include <QTest>

#include <gtest/gtest.h>

namespace {

QApplication& application()
{
    static int argc = 1;
    static char name[] = "app_tests";
    static char* argv[] = {name, nullptr};
    static QApplication app(argc, argv);
    return app;
}

} // namespace

TEST(MainWindow, OpensWithItsTitleAndSize)
{
    application();
    ZentoRagdollBuilder window;
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    EXPECT_EQ(window.windowTitle(), "Zento Ragdoll Builder");
    EXPECT_EQ(window.objectName(), "ZentoRagdollBuilderClass");
}

TEST(MainWindow, TheDarkStyleSheetIsARealResourceAndPaintsTheWindow)
{
    QApplication& app = application();
    const QString styleSheet = loadStyleSheet();
    ASSERT_FALSE(styleSheet.isEmpty());
    EXPECT_TRUE(styleSheet.contains("QMainWindow"));
    // The pictures that the sheet names are compiled in too.
    EXPECT_TRUE(QFile::exists(":/qss_icons/dark/rc/checkbox_checked.png"));

    ZentoRagdollBuilder window;
    window.setCentralWidget(new QLabel);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    const QImage plain = window.grab().toImage();
    app.setStyleSheet(styleSheet);
    QApplication::processEvents();
    const QImage styled = window.grab().toImage();
    app.setStyleSheet(QString());

    const QColor before = plain.pixelColor(plain.width() / 2, plain.height() / 2);
    const QColor after = styled.pixelColor(styled.width() / 2, styled.height() / 2);
    EXPECT_LT(after.lightness(), 80) << "dark background, got " << after.name().toStdString();
    EXPECT_GT(before.lightness(), after.lightness());
}
