// One QApplication for a whole GoogleTest program, created on first use.
#pragma once

#include <QApplication>

inline QApplication& qtApp() {
    static int argc = 1;
    static char name[] = "views_test";
    static char* argv[] = {name, nullptr};
    static QApplication app(argc, argv);
    return app;
}
