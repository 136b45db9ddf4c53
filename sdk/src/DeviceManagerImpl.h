// State behind the DeviceManager singleton, shared by its source files.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

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
    // For frame reads: a lost session still takes the call, whose answer
    // waits out the timeout (Session::withNextFrame).
    ReturnCode requireForFrames(std::shared_ptr<d3sdk::Session>& out);

    std::chrono::milliseconds timeout() const { return std::chrono::milliseconds(timeoutMs.load()); }
    // Calls the monitoring callback, outside `mutex`: it may call back into us.
    void notifyLost(const std::string& serial, const std::string& message);
    // Installs a new monitoring callback and returns once no other thread is
    // still running one installed before it.
    void replaceCallback(std::function<void(std::string, std::string, void*)> cb, void* user);

    std::mutex mutex;  // guards session, the callback and its calls, last device
    std::shared_ptr<d3sdk::Session> session;
    std::function<void(std::string, std::string, void*)> callback;
    void* callbackUser = nullptr;
    // Callback calls in progress: the calling thread and the generation of the
    // callback it runs (callbackGeneration when it was taken). An application
    // may destroy what its callback uses once it has unregistered it, so
    // replacing a callback waits for its calls on other threads; a call on the
    // replacing thread itself (a callback that unregisters itself) cannot be
    // waited for. Callbacks do not exclude each other: one that opens a new
    // session and closes it again must not wait for that session's own loss
    // notice.
    struct CallbackCall {
        std::thread::id thread;
        uint64_t generation;
    };
    std::vector<CallbackCall> callbackCalls;
    uint64_t callbackGeneration = 0;
    std::condition_variable callbackCallEnded;
    // The camera the last successful InitDevice opened, for ReconnectDevice.
    std::string lastSerial;
    std::string lastIp;
    bool lastTcp = true;

    std::atomic<unsigned> timeoutMs{1000};
    std::atomic<bool> depthToRgbEnabled{false};
    std::atomic<bool> rgbToDepthEnabled{false};
    const std::string clientId;  // lets the camera recognise us after a lost link
};
