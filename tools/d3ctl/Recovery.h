// The reconnect path of `d3ctl stats --reconnect`: when the link to the
// camera is lost (the SDK's callback or a 33 from a frame call) it reconnects
// and restarts the stream in a loop, and records when frames flowed again and
// how long that took.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

#include "d3_sdk/DeviceManager.h"

namespace d3ctl {

class StreamRecovery {
public:
    using Clock = std::chrono::steady_clock;

    StreamRecovery();   // registers the monitoring callback
    ~StreamRecovery();  // and removes it
    StreamRecovery(const StreamRecovery&) = delete;
    StreamRecovery& operator=(const StreamRecovery&) = delete;

    // Called with the result of a frame call. For a lost link: ReconnectDevice
    // and StartStream until `readFrame` delivers a frame again or `until`
    // passes. True when frames flow again; false for any other result or when
    // the camera did not come back in time.
    bool recover(ReturnCode rc, Clock::time_point until, const std::function<ReturnCode()>& readFrame);

    // One entry per recovery: when the loss was noticed, what the SDK said,
    // how many attempts and how long until the first frame.
    nlohmann::json report() const;

private:
    void noteLoss(const std::string& message);

    const Clock::time_point start_ = Clock::now();
    mutable std::mutex mutex_;  // the callback runs on an SDK thread
    bool lossNoticed_ = false;
    Clock::time_point lossAt_;
    std::string lossMessage_;
    nlohmann::json events_ = nlohmann::json::array();
};

}  // namespace d3ctl
