#pragma once

#include <QString>

class QWidget;

// The questions the main window asks: file names and message boxes. The
// program asks through Qt's standard dialogs; tests put in answers of their
// own, so that every slot runs without a person at the screen.
class Dialogs {
public:
    virtual ~Dialogs() = default;

    // The chosen file, or an empty text after Cancel.
    virtual QString openFileName(QWidget* parent, const QString& title, const QString& filter);
    virtual QString saveFileName(QWidget* parent, const QString& title, const QString& filter);
    // Yes and No; true for Yes.
    virtual bool askYesNo(QWidget* parent, const QString& title, const QString& text);
    virtual void information(QWidget* parent, const QString& title, const QString& text);
    virtual void critical(QWidget* parent, const QString& title, const QString& text);
};
