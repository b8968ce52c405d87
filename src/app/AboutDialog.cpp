#include "AboutDialog.h"

#include <QGridLayout>
#include <QLabel>
#include <QTextBrowser>

namespace {

QLabel* pictureLabel(const QString& file, QWidget* parent)
{
    auto* label = new QLabel(parent);
    label->setPixmap(QPixmap(":/ZentoRagdollBuilder/Resources/" + file));
    label->setAlignment(Qt::AlignCenter);
    return label;
}

const char* const kCredits =
    "<p>Zento Ragdoll Builder turns a character's skeleton and skin into a physically simulated "
    "ragdoll for the Zento crowd runtime.</p>"
    "<p>Built with:</p><ul>"
    "<li><a href=\"https://www.qt.io\">Qt 5</a>: windows, widgets and OpenGL</li>"
    "<li><a href=\"https://pybullet.org\">Bullet Physics</a>: rigid bodies, constraints and the simulation</li>"
    "<li><a href=\"https://www.assimp.org\">Open Asset Import Library (Assimp)</a>: FBX and other character "
    "files</li>"
    "<li><a href=\"https://github.com/AcademySoftwareFoundation/Imath\">Imath</a>: vectors, matrices and "
    "rotations</li>"
    "</ul>";

} // namespace

AboutDialog::AboutDialog(QWidget* parent) : QDialog(parent)
{
    setModal(true);
    resize(449, 374);
    setWindowTitle(tr("About Zento Ragdoll Builder"));

    auto* layout = new QGridLayout(this);
    layout->addWidget(pictureLabel("abouts.png", this), 0, 0, 1, 2);
    layout->addWidget(pictureLabel("logo_new.png", this), 1, 0);
    auto* product = new QLabel("<b>Zento Ragdoll Builder</b><br>Version " + QString(ZENTO_VERSION), this);
    product->setObjectName("productLabel");
    layout->addWidget(product, 1, 1);
    layout->addWidget(pictureLabel("NVIDIA_PhysX_Logo.png", this), 2, 0);
    auto* credits = new QTextBrowser(this);
    credits->setObjectName("creditsBrowser");
    credits->setOpenExternalLinks(true);
    credits->setHtml(kCredits);
    layout->addWidget(credits, 2, 1);
}
