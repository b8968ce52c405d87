#include "Dialogs.h"

#include <QFileDialog>
#include <QMessageBox>

QString Dialogs::openFileName(QWidget* parent, const QString& title, const QString& filter)
{
    return QFileDialog::getOpenFileName(parent, title, QString(), filter);
}

QString Dialogs::saveFileName(QWidget* parent, const QString& title, const QString& filter)
{
    return QFileDialog::getSaveFileName(parent, title, QString(), filter);
}

bool Dialogs::askYesNo(QWidget* parent, const QString& title, const QString& text)
{
    return QMessageBox::warning(parent, title, text, QMessageBox::Yes | QMessageBox::No) == QMessageBox::Yes;
}

void Dialogs::information(QWidget* parent, const QString& title, const QString& text)
{
    QMessageBox::information(parent, title, text);
}

void Dialogs::critical(QWidget* parent, const QString& title, const QString& text)
{
    QMessageBox::critical(parent, title, text);
}
