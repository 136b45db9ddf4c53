// State behind the DeviceManager singleton, shared by its source files.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "Session.h"
#include "d3_sdk/DeviceManager.h"

struct DeviceManager::Impl {
    Impl();
    // The singleton's state, for the extension functions (DeviceManager keeps
    // its pointer private).
    static Impl& of(DeviceManager& dm);
    static Impl* instance;

    // The open session, or null. Callers keep their copy for the length of a
    // call, so a concurrent disconnect cannot pull it from under them.
    std::shared_ptr<d3sdk::Session> current();
    // Current session or the code a call without one returns.
    ReturnCode require(std::shared_ptr<d3sdk::Session>& out);

    std::chrono::milliseconds timeout() const { return std::chrono::milliseconds(timeoutMs.load()); }
    void notifyLost(const std::string& serial, const std::string& message);

    std::mutex mutex;  // guards session, callback, last device
    std::shared_ptr<d3sdk::Session> session;
    std::function<void(std::string, std::string, void*)> callback;
    void* callbackUser = nullptr;
    // The camera the last successful InitDevice opened, for ReconnectDevice.
    std::string lastSerial;
    std::string lastIp;
    bool lastTcp = true;

    std::atomic<unsigned> timeoutMs{1000};
    std::atomic<bool> depthToRgbEnabled{false};
    std::atomic<bool> rgbToDepthEnabled{false};
    const std::string clientId;  // lets the camera recognise us after a lost link
};
