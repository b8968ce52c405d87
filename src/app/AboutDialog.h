#pragma once

#include <QDialog>

// The modal box of Help > About: the product, its version and the libraries it is built on.
class AboutDialog : public QDialog {
    Q_OBJECT

public:
    explicit AboutDialog(QWidget* parent = nullptr);
};
