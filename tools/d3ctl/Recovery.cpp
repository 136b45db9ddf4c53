#include "Recovery.h"

#include <iostream>
#include <thread>

namespace d3ctl {

namespace {

double secondsBetween(StreamRecovery::Clock::time_point a, StreamRecovery::Clock::time_point b) {
    return std::chrono::duration<double>(b - a).count();
}

}  // namespace

StreamRecovery::StreamRecovery() {
    DeviceManager::GetInstance().RegisterNetworkMonitoringCallback(
        [](std::string, std::string message, void* self) { static_cast<StreamRecovery*>(self)->noteLoss(message); },
        this);
}

StreamRecovery::~StreamRecovery() { DeviceManager::GetInstance().RegisterNetworkMonitoringCallback(nullptr, nullptr); }

void StreamRecovery::noteLoss(const std::string& message) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (lossNoticed_) return;
    lossNoticed_ = true;
    lossAt_ = Clock::now();
    lossMessage_ = message;
}

bool StreamRecovery::recover(ReturnCode rc, Clock::time_point until, const std::function<ReturnCode()>& readFrame) {
    if (rc != NETWORK_ERROR) return false;
    noteLoss("frame call: " + DeviceManager::GetInstance().GetReturnCodeDescriptor(rc));
    Clock::time_point lostAt;
    std::string message;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        lostAt = lossAt_;
        message = lossMessage_;
    }
    std::cerr << "d3ctl: " << message << "; reconnecting\n";
    DeviceManager& dm = DeviceManager::GetInstance();
    int attempts = 0;
    while (Clock::now() < until) {
        ++attempts;
        const auto attemptStart = Clock::now();
        rc = dm.ReconnectDevice(1000);
        if (rc == SUCCESS) rc = dm.StartStream();
        while (rc == SUCCESS && Clock::now() < until) {
            const ReturnCode frame = readFrame();
            if (frame == SUCCESS) {
                const auto back = Clock::now();
                std::cerr << "d3ctl: stream back after " << secondsBetween(lostAt, back) << " s (" << attempts
                          << (attempts == 1 ? " attempt)\n" : " attempts)\n");
                std::lock_guard<std::mutex> lock(mutex_);
                events_.push_back({{"lostAtSeconds", secondsBetween(start_, lostAt)},
                                   {"message", message},
                                   {"attempts", attempts},
                                   {"backAfterSeconds", secondsBetween(lostAt, back)}});
                lossNoticed_ = false;
                return true;
            }
            if (frame != TIMEOUT) rc = frame;  // lost again: start over
        }
        // A camera that refuses at once must not turn this into a busy loop.
        const auto spent = Clock::now() - attemptStart;
        if (spent < std::chrono::milliseconds(200)) std::this_thread::sleep_for(std::chrono::milliseconds(200) - spent);
    }
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back({{"lostAtSeconds", secondsBetween(start_, lostAt)},
                       {"message", message},
                       {"attempts", attempts},
                       {"backAfterSeconds", nullptr}});
    return false;
}

nlohmann::json StreamRecovery::report() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
}

}  // namespace d3ctl
