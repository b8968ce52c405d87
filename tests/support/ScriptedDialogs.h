#pragma once

#include "Dialogs.h"

#include <QStringList>

#include <deque>

// Answers the window's questions from a script instead of a person: file
// names in order, then empty (Cancel); Yes or No in order, then No. Every
// question and message is logged as "title: text".
class ScriptedDialogs : public Dialogs {
public:
    QString openFileName(QWidget*, const QString& title, const QString&) override { return next(title); }
    QString saveFileName(QWidget*, const QString& title, const QString&) override { return next(title); }
    bool askYesNo(QWidget*, const QString& title, const QString& text) override
    {
        log << title + ": " + text;
        if (answers.empty())
            return false;
        const bool yes = answers.front();
        answers.pop_front();
        return yes;
    }
    void information(QWidget*, const QString& title, const QString& text) override { log << title + ": " + text; }
    void critical(QWidget*, const QString& title, const QString& text) override { log << title + ": " + text; }

    std::deque<QString> files;
    std::deque<bool> answers;
    QStringList log;

private:
    QString next(const QString& title)
    {
        log << title;
        if (files.empty())
            return QString();
        const QString file = files.front();
        files.pop_front();
        return file;
    }
};
