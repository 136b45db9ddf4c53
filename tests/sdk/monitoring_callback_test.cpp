// Replacing the link-monitoring callback against calls of it in progress. The
// SDK thread that reports a lost link is played by a thread of the test,
// calling the notification directly.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "blockingcall.h"
#include "DeviceManagerImpl.h"

namespace {

// Something a callback holds until the test lets it go.
class Gate {
public:
    void open() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            open_ = true;
        }
        changed_.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

void reportLoss(const std::string& serial) {
    DeviceManager::Impl::of(DeviceManager::GetInstance()).notifyLost(serial, "link lost");
}

}  // namespace

TEST(MonitoringCallback, UnregisteringWaitsForARunningCallbackButNotForItself) {
    DeviceManager& dm = DeviceManager::GetInstance();

    // Another thread unregisters while the callback runs: it returns only
    // after the callback has, so the application may then destroy its state.
    Gate entered, release;
    std::atomic<bool> callbackEnded{false};
    dm.RegisterNetworkMonitoringCallback(
        [&](std::string, std::string, void*) {
            entered.open();
            release.wait();
            callbackEnded = true;
        },
        nullptr);
    std::thread sdkThread([] { reportLoss("A"); });
    entered.wait();
    bool endedBeforeReturn = false;
    sdktest::BlockingCall unregister([&] {
        dm.RegisterNetworkMonitoringCallback(nullptr, nullptr);
        endedBeforeReturn = callbackEnded;
    });
    EXPECT_TRUE(unregister.blocks()) << "unregistering returned while the callback was still running";
    release.open();
    unregister.join();
    sdkThread.join();
    EXPECT_TRUE(endedBeforeReturn);

    // A callback that replaces itself (on the SDK thread) must not wait for
    // itself; the next loss goes to the replacement. It may also call into
    // the SDK, which it could not if it ran under the SDK's lock.
    std::string replacementGot;
    ReturnCode disconnect = SUCCESS;
    dm.RegisterNetworkMonitoringCallback(
        [&](std::string, std::string, void*) {
            dm.RegisterNetworkMonitoringCallback(
                [&](std::string serial, std::string, void*) { replacementGot = serial; }, nullptr);
            disconnect = dm.DisconnectFromDevice();
        },
        nullptr);
    std::thread([] { reportLoss("B"); }).join();  // a deadlock here ends in the test's timeout
    EXPECT_EQ(disconnect, NOT_CONNECTED);
    std::thread([] { reportLoss("C"); }).join();
    EXPECT_EQ(replacementGot, "C");
    dm.RegisterNetworkMonitoringCallback(nullptr, nullptr);
}
