#include "FrameMemory.h"
#include "StyleSheet.h"
#include "ZentoRagdollBuilder.h"

#include <QApplication>

#include <iostream>

int main(int argc, char* argv[])
{
    keepFrameMemory();
    QApplication application(argc, argv);
    ZentoRagdollBuilder window;
    window.show();

    const QString styleSheet = loadStyleSheet();
    if (styleSheet.isEmpty()) {
        std::cout << "argv " << argv[0] << std::endl;
        std::cout << "Unable to set stylesheet, file not found\n";
    } else {
        application.setStyleSheet(styleSheet);
    }
    return application.exec();
}
