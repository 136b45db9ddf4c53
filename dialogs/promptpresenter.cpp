#include "promptpresenter.h"

#include <QWidget>

#include "uiprompt.h"

PromptPresenter::PromptPresenter(QWidget* window) : QObject(window), window_(window) {}

void PromptPresenter::show(PromptKind kind, const QString& title, const QString& text) {
    queue_.append({kind, title, text});
    // A box runs its own event loop; requests arriving meanwhile queue up here.
    if (showing_) return;
    showing_ = true;
    while (!queue_.isEmpty()) {
        const Request r = queue_.takeFirst();
        if (r.kind == PromptKind::Information)
            UiPrompt::information(window_, r.title, r.text);
        else
            UiPrompt::warning(window_, r.title, r.text);
    }
    showing_ = false;
}
