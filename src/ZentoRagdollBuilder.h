#pragma once

#include <QMainWindow>

// The one main window of the program.
class ZentoRagdollBuilder : public QMainWindow {
    Q_OBJECT

public:
    explicit ZentoRagdollBuilder(QWidget* parent = nullptr);
    ~ZentoRagdollBuilder() override;
};
