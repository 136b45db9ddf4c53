// Shows the boxes the window's parts ask for, one at a time and in the order
// they were asked for, through the prompt seam. A box asked for while another
// is open waits for it instead of stacking on top of it.
#pragma once

#include <QList>
#include <QObject>
#include <QString>

#include "sessionstate.h"

class QWidget;

class PromptPresenter : public QObject {
    Q_OBJECT
public:
    // Boxes are shown with `window` as their parent.
    explicit PromptPresenter(QWidget* window);

public slots:
    void show(PromptKind kind, const QString& title, const QString& text);

private:
    struct Request {
        PromptKind kind;
        QString title;
        QString text;
    };
    QWidget* window_;
    QList<Request> queue_;
    bool showing_ = false;
};
