// CameraServer lifecycle, listening sockets, discovery and reboots.
#include "CameraServer.h"

#include <cstdio>

#include "CloseOnExec.h"
#include "ServerImpl.h"
#include "d3_protocol/Commands.h"

namespace d3sim {

using asio::ip::tcp;
using asio::ip::udp;

CameraServer::Impl::Impl(ServerConfig c)
    : config(std::move(c)), tokenRng(uint32_t(config.seed * 2654435761u + 17)), jpeg(config.jpegQuality) {
    accessWord = config.accessWord;
    NetworkSettings net;
    net.ip = config.address;
    CameraSettings defaults;
    if (config.recording) {
        config.model = config.recording->model();
        if (config.fps <= 0) config.fps = config.recording->frameRate();
    }
    if (config.fps > 0) {
        defaults.frameRate = std::min(config.fps, 25);
        const ExposureLimit lim = exposureLimitForFps(defaults.frameRate);
        defaults.tofExposureUs = std::min(defaults.tofExposureUs, lim.tofMaxUs);
        defaults.rgbExposureUs = std::min(defaults.rgbExposureUs, lim.rgbMaxUs);
    }
    CameraIdentity identity = config.recording && config.serial.empty()
                                  ? Camera::makeReplayIdentity(config.model, config.address)
                                  : Camera::makeIdentity(config.model, config.address, config.serial);
    camera = std::make_unique<Camera>(identity, net, config.stateDir, config.seed, defaults);
    if (config.recording) camera->setRecording(config.recording);
}

void CameraServer::Impl::setError(const std::string& e) {
    std::lock_guard<std::mutex> lock(mutex);
    error = e;
}

bool CameraServer::Impl::openSockets(std::string& err) {
    const NetworkSettings net = camera->network();
    asio::error_code ec;
    const asio::ip::address_v4 ip = asio::ip::make_address_v4(net.ip, ec);
    if (ec) {
        err = "bad address " + net.ip;
        return false;
    }
    uint32_t mask = 0xFF000000u;
    d3proto::parseIpv4(net.netmask, mask);
    // On the loopback the network is the interface's /8, whatever mask the
    // camera was given: a narrower one would hide it from every search on
    // the machine it runs on.
    if (ip.is_loopback()) mask = 0xFF000000u;
    const asio::ip::address_v4 broadcast(ip.to_uint() | ~mask);

    auto fail = [&](const char* what, const asio::error_code& e) {
        err = std::string(what) + " " + net.ip + ": " + e.message();
        closeSockets();
        return false;
    };
    // Broadcasts are only delivered to sockets bound to the broadcast address (or
    // 0.0.0.0), never to one bound to our unicast address; hence two sockets.
    for (auto [socket, addr] : {std::pair{&discoveryUnicast, ip}, std::pair{&discoveryBroadcast, broadcast}}) {
        socket->open(udp::v4(), ec);
        if (!ec) closeOnExec(socket->native_handle());
        if (!ec) socket->set_option(asio::socket_base::reuse_address(true), ec);
        if (!ec) socket->bind(udp::endpoint(addr, config.discoveryPort), ec);
        if (ec) return fail("discovery", ec);
    }
    for (auto [acceptor, port] :
         {std::pair{&controlAcceptor, config.controlPort}, std::pair{&streamAcceptor, config.streamPort}}) {
        acceptor->open(tcp::v4(), ec);
        if (!ec) closeOnExec(acceptor->native_handle());
        if (!ec) acceptor->set_option(asio::socket_base::reuse_address(true), ec);
        if (!ec) acceptor->bind(tcp::endpoint(ip, port), ec);
        if (!ec) acceptor->listen(asio::socket_base::max_listen_connections, ec);
        if (ec) return fail(acceptor == &controlAcceptor ? "control port" : "stream port", ec);
    }
    // The datagram stream shares the stream port number with the TCP one.
    if (!udp.open(net.ip, config.streamPort, err)) {
        closeSockets();
        return false;
    }
    receiveDiscovery(discoveryUnicast, unicastBuffer, unicastFrom);
    receiveDiscovery(discoveryBroadcast, broadcastBuffer, broadcastFrom);
    accept(controlAcceptor, Connection::Kind::Control);
    accept(streamAcceptor, Connection::Kind::Stream);
    std::lock_guard<std::mutex> lock(mutex);
    address = net.ip;
    up = true;
    upCv.notify_all();
    return true;
}

void CameraServer::Impl::closeSockets() {
    asio::error_code ec;
    discoveryUnicast.close(ec);
    discoveryBroadcast.close(ec);
    controlAcceptor.close(ec);
    streamAcceptor.close(ec);
    udp.close();
    // Closing calls onClosed, which erases from the set: iterate over a copy.
    auto all = connections;
    for (const auto& c : all) c->close();
    connections.clear();
    std::lock_guard<std::mutex> lock(mutex);
    up = false;
}

void CameraServer::Impl::receiveDiscovery(udp::socket& socket, std::array<uint8_t, 1500>& buffer, udp::endpoint& from) {
    socket.async_receive_from(
        asio::buffer(buffer), from, [this, &socket, &buffer, &from](const asio::error_code& ec, size_t n) {
            if (ec == asio::error::operation_aborted || !socket.is_open() || stopping) return;
            d3proto::Message msg;
            // A paused camera answers nothing; a searcher simply misses it.
            if (!ec && !faults.paused() &&
                d3proto::decodeDatagram(buffer.data(), n, msg) == d3proto::DecodeResult::Ok &&
                msg.header.type == d3proto::MessageType::Request &&
                msg.header.command == uint16_t(d3proto::Command::Discover)) {
                const std::string body =
                    d3proto::dump(d3proto::toJson(camera->deviceInfo(config.controlPort, config.streamPort)));
                const auto bytes = d3proto::makeMessage(d3proto::MessageType::Reply, msg.header.command,
                                                        msg.header.requestId, d3proto::status::kSuccess, body);
                // Answer from the unicast socket so the reply's source is this camera's address.
                asio::error_code sendError;
                discoveryUnicast.send_to(asio::buffer(bytes), from, 0, sendError);
            }
            receiveDiscovery(socket, buffer, from);
        });
}

void CameraServer::Impl::accept(tcp::acceptor& acceptor, Connection::Kind kind) {
    acceptor.async_accept([this, &acceptor, kind](const asio::error_code& ec, tcp::socket socket) {
        if (ec == asio::error::operation_aborted || !acceptor.is_open() || stopping) return;
        if (!ec) {
            closeOnExec(socket.native_handle());
            auto conn = std::make_shared<Connection>(
                std::move(socket), kind, [this](const Connection::Ptr& c, d3proto::Message& m) { onMessage(c, m); },
                [this](const Connection::Ptr& c) { onClosed(c); });
            connections.insert(conn);
            conn->start();
        }
        accept(acceptor, kind);
    });
}

void CameraServer::Impl::beginReboot() {
    {
        // Down before any socket closes, so whoever sees the link drop also sees the camera down.
        std::lock_guard<std::mutex> lock(mutex);
        up = false;
    }
    endSession("reboot");
    cancelFlashOperation();
    closeSockets();
    {
        std::lock_guard<std::mutex> lock(mutex);
        ++stats.reboots;
    }
    rebootTimer.expires_after(std::chrono::milliseconds(config.rebootMs));
    rebootTimer.async_wait([this](const asio::error_code& ec) {
        if (ec || stopping || killed) return;
        camera->reboot();
        std::string err;
        if (!openSockets(err)) {
            std::fprintf(stderr, "d3sim: camera %s did not come back: %s\n", camera->identity().serial.c_str(),
                         err.c_str());
            setError(err);
            std::lock_guard<std::mutex> lock(mutex);
            upCv.notify_all();
        }
    });
}

void CameraServer::Impl::shutdownOnIo() {
    stopping = true;
    endSession("stop");
    closeSockets();
    asio::error_code ec;
    heartbeatTimer.cancel();
    rebootTimer.cancel();
    restartTimer.cancel();
    resumeTimer.cancel();
    cancelFlashOperation();
    deferred.clear();
}

CameraServer::CameraServer(ServerConfig config) : impl_(std::make_unique<Impl>(std::move(config))) {}

CameraServer::~CameraServer() { stop(); }

bool CameraServer::start() {
    Impl& d = *impl_;
    if (d.running) return true;
    std::string err;
    if (!d.openSockets(err)) {
        d.setError(err);
        return false;
    }
    d.running = true;
    d.checkHeartbeat();
    d.ioThread = std::thread([&d] { d.io.run(); });
    d.pumpThread = std::thread([&d] { d.pumpLoop(); });
    return true;
}

void CameraServer::stop() {
    Impl& d = *impl_;
    if (!d.running.exchange(false)) return;
    {
        std::lock_guard<std::mutex> lock(d.pumpMutex);
        d.quit = true;
    }
    d.pumpCv.notify_all();
    d.pumpThread.join();
    asio::post(d.io, [&d] { d.shutdownOnIo(); });
    d.work.reset();
    d.ioThread.join();
}

bool CameraServer::running() const { return impl_->running; }

std::string CameraServer::lastError() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->error;
}

Camera& CameraServer::camera() { return *impl_->camera; }
LinkFaults& CameraServer::faults() { return impl_->faults; }
const ServerConfig& CameraServer::config() const { return impl_->config; }

std::string CameraServer::address() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->address;
}

std::string CameraServer::serial() const { return impl_->camera->identity().serial; }
std::string CameraServer::deviceString() const { return serial() + ":" + address(); }

void CameraServer::hardwareTrigger() {
    const int mode = impl_->camera->settings().triggerMode;
    if (mode == 2 || mode == 3) impl_->queueTrigger();
}

bool CameraServer::waitUntilUp(int timeoutMs) {
    std::unique_lock<std::mutex> lock(impl_->mutex);
    return impl_->upCv.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return impl_->up; });
}

CameraServer::Stats CameraServer::stats() const {
    const UdpStreamer::Stats u = impl_->udp.stats();
    std::lock_guard<std::mutex> lock(impl_->mutex);
    Stats s = impl_->stats;
    s.framesSent += u.framesSent;
    s.framesDropped += u.framesExpired;
    s.udpDatagramsSent = u.datagramsSent;
    s.udpDatagramsLost = u.datagramsLost;
    s.udpResendRequests = u.resendRequests;
    s.udpDatagramsResent = u.datagramsResent;
    s.streamBytesSent += u.bytesSent;
    s.frameDelayMsTotal += u.delayMsTotal;
    return s;
}

}  // namespace d3sim
