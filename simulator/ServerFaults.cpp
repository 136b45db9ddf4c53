// Faults on demand: kill and restart, pause, address change, injected
// failures and latency. They make the client's recovery paths testable.
#include <future>

#include "ServerImpl.h"

namespace d3sim {

namespace {

// Runs `fn` on the io thread and waits for it; the public fault calls come
// from tests and the control socket, never from the io thread itself.
template <typename Fn>
auto onIo(asio::io_context& io, Fn fn) -> decltype(fn()) {
    std::packaged_task<decltype(fn())()> task(std::move(fn));
    auto result = task.get_future();
    asio::post(io, [&task] { task(); });
    return result.get();
}

}  // namespace

void CameraServer::Impl::killOnIo(int downMs) {
    if (!killed) {
        {
            // Down before any socket closes, as in a reboot: whoever sees the
            // link drop also sees the camera gone.
            std::lock_guard<std::mutex> lock(mutex);
            up = false;
        }
        killed = true;
        killedFlag = true;
        rebootTimer.cancel();  // a reboot in progress does not bring a dead camera back
        resumeTimer.cancel();
        cancelFlashOperation();
        deferred.clear();
        endSession("killed");
        closeSockets();
        camera->setStreaming(false);
    }
    restartTimer.cancel();
    if (downMs > 0) {
        restartTimer.expires_after(std::chrono::milliseconds(downMs));
        restartTimer.async_wait([this](const asio::error_code& ec) {
            if (!ec && !stopping) restartOnIo();
        });
    }
}

bool CameraServer::Impl::restartOnIo() {
    restartTimer.cancel();
    if (!killed) return true;
    // A power cycle: whatever was not stored is gone.
    camera->reboot();
    // Alive before the sockets say "up", so whoever waits for that sees it alive.
    killed = false;
    killedFlag = false;
    std::string err;
    if (openSockets(err)) return true;
    killed = true;
    killedFlag = true;
    setError(err);
    return false;
}

void CameraServer::Impl::deferWhilePaused(const Connection::Ptr& conn, const d3proto::Message& msg) {
    deferred.emplace_back(conn, msg);
    if (deferred.size() > 1) return;  // the timer is already set
    resumeTimer.expires_at(faults.pausedUntil());
    resumeTimer.async_wait([this](const asio::error_code& ec) {
        if (!ec) resumeAfterPause();
    });
}

void CameraServer::Impl::resumeAfterPause() {
    if (faults.paused()) {
        // The pause was extended meanwhile.
        resumeTimer.expires_at(faults.pausedUntil());
        resumeTimer.async_wait([this](const asio::error_code& ec) {
            if (!ec) resumeAfterPause();
        });
        return;
    }
    auto held = std::move(deferred);
    deferred.clear();
    for (auto& [conn, msg] : held)
        if (!conn->closed()) onMessage(conn, msg);
}

void CameraServer::Impl::afterLatency(size_t bytes, std::function<void()> fn) {
    // Each reply has its own timer, so a long delay holds no later reply back
    // beyond its own arrival time; the link keeps them in order.
    auto timer = std::make_shared<asio::steady_timer>(io, faults.replyArrival(bytes));
    timer->async_wait([timer, fn = std::move(fn)](const asio::error_code&) { fn(); });
}

void CameraServer::kill(int downMs) {
    Impl& d = *impl_;
    if (!d.running) return;
    onIo(d.io, [&d, downMs] { d.killOnIo(downMs); });
}

bool CameraServer::restart() {
    Impl& d = *impl_;
    if (!d.running) return false;
    return onIo(d.io, [&d] { return d.restartOnIo(); });
}

bool CameraServer::killed() const { return impl_->killedFlag; }

void CameraServer::pause(int ms) { impl_->faults.pauseFor(std::chrono::milliseconds(ms)); }

bool CameraServer::changeAddress(const std::string& ip) {
    Impl& d = *impl_;
    NetworkSettings n = d.camera->network();
    uint32_t addr = 0, mask = 0;
    if (!d3proto::parseIpv4(ip, addr) || !d3proto::parseIpv4(n.netmask, mask)) return false;
    const uint32_t host = addr & ~mask;
    if (host == 0 || host == ~mask) return false;
    n.ip = ip;
    n.dhcp = false;
    if (!d.running) return d.camera->storeNetwork(n);
    return onIo(d.io, [&d, n] {
        if (!d.camera->storeNetwork(n)) return false;
        // A dead camera takes its new address when it is restarted.
        if (!d.killed) d.beginReboot();
        return true;
    });
}

void CameraServer::failNext(const std::string& commandName, int32_t status) {
    impl_->camera->failNext(commandName, status);
}

}  // namespace d3sim
