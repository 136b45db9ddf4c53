// Answers every message box and file dialog instead of a person, and keeps
// what would have been shown.
#pragma once

#include <QString>
#include <QVector>

#include "uiprompt.h"

// Installs itself as the prompt responder for its lifetime.
class PromptRecorder {
public:
    QVector<UiPrompt::Request> requests;
    QString pathAnswer;

    PromptRecorder() {
        UiPrompt::setResponder([this](const UiPrompt::Request& r) {
            requests.append(r);
            UiPrompt::Answer a;
            a.path = pathAnswer;
            return a;
        });
    }
    ~PromptRecorder() { UiPrompt::setResponder(nullptr); }
    PromptRecorder(const PromptRecorder&) = delete;
    PromptRecorder& operator=(const PromptRecorder&) = delete;
};
