// Shared pieces of the viewer shell tests: a recording SDK double and a
// prompt responder that answers every box instead of a person.
#pragma once

#include <QString>
#include <QVector>
#include <string>
#include <vector>

#include "cameraapi.h"
#include "uiprompt.h"

class FakeCamera final : public CameraApi {
public:
    ReturnCode stopResult = SUCCESS;
    std::vector<std::string> calls;
    LinkCallback callback;
    unsigned timeout = 0;

    ReturnCode SetTimeout(unsigned int ms) override {
        calls.push_back("SetTimeout");
        timeout = ms;
        return SUCCESS;
    }
    void RegisterNetworkMonitoringCallback(LinkCallback cb, void*) override {
        calls.push_back("RegisterNetworkMonitoringCallback");
        callback = std::move(cb);
    }
    ReturnCode StopStream() override {
        calls.push_back("StopStream");
        return stopResult;
    }
    ReturnCode DisconnectFromDevice() override {
        calls.push_back("DisconnectFromDevice");
        return SUCCESS;
    }
    std::string GetReturnCodeDescriptor(ReturnCode code) override { return "code " + std::to_string(int(code)); }
};

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
