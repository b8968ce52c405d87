// Build-time tool: renders each SVG picture to a PNG of the size that the SVG
// declares, so that the program's resources hold plain pictures.
// Usage: RenderIcons <output directory> <file.svg>...

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include <cstdio>

int main(int argc, char* argv[])
{
    QGuiApplication application(argc, argv);
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s <output directory> <file.svg>...\n", argv[0]);
        return 2;
    }
    const QDir output(QString::fromLocal8Bit(argv[1]));
    for (int i = 2; i < argc; ++i) {
        const QString source = QString::fromLocal8Bit(argv[i]);
        QSvgRenderer renderer(source);
        if (!renderer.isValid()) {
            std::fprintf(stderr, "%s: not a valid SVG picture\n", argv[i]);
            return 1;
        }
        QImage image(renderer.defaultSize(), QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        renderer.render(&painter);
        painter.end();
        const QString target = output.filePath(QFileInfo(source).completeBaseName() + ".png");
        if (!image.save(target)) {
            std::fprintf(stderr, "%s: cannot be written\n", qPrintable(target));
            return 1;
        }
    }
    return 0;
}
