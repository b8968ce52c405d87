#include "StyleSheet.h"

#include <QFile>
#include <QTextStream>

QString loadStyleSheet()
{
    QFile file(":qdarkstyle/style.qss");
    if (!file.exists() || !file.open(QFile::ReadOnly | QFile::Text))
        return QString();
    QTextStream stream(&file);
    return stream.readAll();
}
