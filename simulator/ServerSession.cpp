// The control and stream protocol: sessions, heartbeats, the reply cache and
// command dispatch to the Camera.
#include "ServerImpl.h"
#include "d3_protocol/Commands.h"

namespace d3sim {

using d3proto::Command;
using d3proto::Json;
namespace st = d3proto::status;

namespace {
constexpr size_t kReplyCacheSize = 64;
constexpr auto kHeartbeatCheck = std::chrono::milliseconds(100);
}  // namespace

void CameraServer::Impl::onMessage(const Connection::Ptr& conn, d3proto::Message& msg) {
    // Clients only send requests; anything else is ignored rather than answered,
    // so two confused peers cannot ping-pong replies forever.
    if (msg.header.type != d3proto::MessageType::Request) return;
    // Held requests go first, so one arriving just as a pause ends waits its turn.
    if (faults.paused() || !deferred.empty()) return deferWhilePaused(conn, msg);
    if (conn->kind() == Connection::Kind::Stream)
        handleStream(conn, msg);
    else
        handleControl(conn, msg);
}

void CameraServer::Impl::onClosed(const Connection::Ptr& conn) {
    connections.erase(conn);
    if (conn == firmware.conn) endFirmwareUpdate("connection closed");
    if (conn == owner) endSession("connection closed");
    if (conn == streamConn) {
        streamConn.reset();
        streamAttached = false;
        forgetFramesInFlight();
    }
}

void CameraServer::Impl::reply(const Connection::Ptr& conn, const d3proto::Header& request, int32_t status,
                               const Json& body, std::function<void()> done) {
    const std::string text = body.empty() ? std::string() : d3proto::dump(body);
    auto bytes = d3proto::makeMessage(d3proto::MessageType::Reply, request.command, request.requestId, status, text);
    // Only the session holder's replies are worth replaying; OpenSession always runs
    // again because a reconnect must get a fresh token.
    if (conn == owner && request.requestId != 0 && request.command != uint16_t(Command::OpenSession)) {
        replyCache.push_back({request.requestId, request.command, bytes});
        if (replyCache.size() > kReplyCacheSize) replyCache.pop_front();
    }
    if (!faults.shaped()) return conn->send(std::move(bytes), std::move(done));
    const size_t size = bytes.size();
    afterLatency(size, [conn, bytes = std::move(bytes), done = std::move(done)]() mutable {
        conn->send(std::move(bytes), std::move(done));
    });
}

void CameraServer::Impl::handleControl(const Connection::Ptr& conn, d3proto::Message& msg) {
    const d3proto::Header& h = msg.header;
    const d3proto::CommandInfo* info = d3proto::findCommand(h.command);
    if (conn == owner) lastActivity = Clock::now();
    if (firmwareStalled(conn)) {
        camera->logCommand(info ? info->name : "Unknown", "{\"unanswered\":\"firmware stall\"}", 0);
        return;
    }

    if (conn == owner && h.requestId != 0) {
        for (const CachedReply& c : replyCache) {
            if (c.requestId == h.requestId && c.command == h.command) {
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    ++stats.repliesFromCache;
                }
                conn->send(c.bytes);
                return;
            }
        }
    }

    if (info && info->args == d3proto::Args::Binary) return firmwareChunk(conn, msg);
    Json args;
    if (!info || info->id == Command::AttachStream || info->id == Command::FrameEvent ||
        info->id == Command::CalibrationEvent || info->id == Command::Discover) {
        camera->logCommand(info ? info->name : "Unknown", msg.payloadText(), st::kNotSupported);
        return reply(conn, h, st::kNotSupported, {{"error", "unknown command on the control connection"}});
    }
    if (!d3proto::parseJsonObject(msg.payload.data(), msg.payload.size(), args)) {
        camera->logCommand(info->name, msg.payloadText(), st::kProtocolError);
        return reply(conn, h, st::kProtocolError, {{"error", "payload is not a JSON object"}});
    }
    if (info->needsSession && conn != owner) {
        camera->logCommand(info->name, d3proto::dump(args), st::kNotConnected);
        return reply(conn, h, st::kNotConnected, {{"error", "no session on this connection"}});
    }

    Json body = Json::object();
    int32_t status = st::kSuccess;
    switch (info->id) {
        case Command::OpenSession:
            status = openSession(conn, args, body);
            camera->logCommand(info->name, d3proto::dump(args), status);
            return reply(conn, h, status, body);
        case Command::CloseSession:
            camera->logCommand(info->name, "{}", status);
            return reply(conn, h, status, body, [this, conn] {
                if (conn == owner) endSession("closed by client");
            });
        case Command::Heartbeat:
            camera->logCommand(info->name, "{}", status);
            return reply(conn, h, status, body);
        case Command::GetDeviceInfo:
            camera->logCommand(info->name, "{}", status);
            return reply(conn, h, status, d3proto::toJson(camera->deviceInfo(config.controlPort, config.streamPort)));
        case Command::FirmwareBegin:
            return firmwareBegin(conn, h, args);
        case Command::FirmwareCommit:
            return firmwareCommit(conn, h, args);
        case Command::StartStream:
            // A camera taking new firmware does not stream meanwhile.
            if (firmware.conn || flashBusy) {
                camera->logCommand(info->name, "{}", st::kBusy);
                return reply(conn, h, st::kBusy, {{"error", "a firmware update is in progress"}});
            }
            break;
        default:
            break;
    }

    AfterReply after = AfterReply::Nothing;
    status = camera->execute(info->id, args, body, after);
    if (status == st::kSuccess) {
        if (info->id == Command::StartStream || info->id == Command::StopStream) notifyPump();
        if (info->id == Command::SoftTrigger) queueTrigger();
    }
    if (after == AfterReply::Reboot) {
        // Reply first, then go away as the real camera does when it restarts.
        return reply(conn, h, status, body, [this] { asio::post(io, [this] { beginReboot(); }); });
    }
    reply(conn, h, status, body);
}

int32_t CameraServer::Impl::openSession(const Connection::Ptr& conn, const Json& args, Json& body) {
    d3proto::SessionRequest req;
    if (!d3proto::fromJson(args, req)) return st::kProtocolError;
    if (req.transport != "tcp" && req.transport != "udp") return st::kNotSupported;
    bool takeover = false;
    if (owner && owner != conn) {
        // The same client on a new connection is a reconnect the camera has not noticed yet.
        if (ownerClient != req.client) return st::kBusy;
        endSession("taken over by a new connection of the same client");
        takeover = true;
    }
    if (owner != conn) {
        // Replies are replayed only within the session they belong to (kept across a
        // takeover, which is how a client retries after losing its link): a fresh
        // session may restart its request ids and must never get an old session's replies.
        if (!takeover) replyCache.clear();
        owner = conn;
        ownerClient = req.client;
        do {
            token = tokenRng();
        } while (token == 0);
        udpSession = req.transport == "udp";
        if (udpSession) udp.beginSession(token);
        std::lock_guard<std::mutex> lock(mutex);
        ++stats.sessionsOpened;
    }
    lastActivity = Clock::now();
    d3proto::SessionReply r;
    r.token = token;
    r.streamPort = config.streamPort;
    r.heartbeatMs = 1000;
    r.timeoutMs = config.heartbeatTimeoutMs;
    body = d3proto::toJson(r);
    return st::kSuccess;
}

void CameraServer::Impl::endSession(const char* reason) {
    if (!owner) return;
    camera->logCommand("SessionEnded", d3proto::dump(Json{{"reason", reason}}), st::kSuccess);
    camera->setStreaming(false);
    Connection::Ptr oldOwner = std::move(owner);
    Connection::Ptr oldStream = std::move(streamConn);
    owner.reset();
    streamConn.reset();
    streamAttached = false;
    forgetFramesInFlight();
    token = 0;
    udp.endSession();
    udpSession = false;
    notifyPump();
    // Let what is queued (e.g. the CloseSession reply) go out before the socket closes.
    oldOwner->closeAfterWrites();
    if (oldStream) oldStream->close();
}

void CameraServer::Impl::checkHeartbeat() {
    // A paused camera is frozen: its own clock does not judge the client meanwhile.
    if (owner && !faults.paused() &&
        Clock::now() - lastActivity > std::chrono::milliseconds(config.heartbeatTimeoutMs)) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            ++stats.sessionsTimedOut;
        }
        endSession("heartbeat timeout");
    }
    checkFirmwareIdle();
    if (stopping) return;
    heartbeatTimer.expires_after(kHeartbeatCheck);
    heartbeatTimer.async_wait([this](const asio::error_code& ec) {
        if (!ec) checkHeartbeat();
    });
}

void CameraServer::Impl::handleStream(const Connection::Ptr& conn, d3proto::Message& msg) {
    const d3proto::Header& h = msg.header;
    if (h.command != uint16_t(Command::AttachStream)) {
        return reply(conn, h, st::kNotSupported, {{"error", "only AttachStream is accepted here"}});
    }
    Json args;
    int64_t presented = -1;
    if (!d3proto::parseJsonObject(msg.payload.data(), msg.payload.size(), args) ||
        !d3proto::getInt(args, "token", presented))
        return reply(conn, h, st::kProtocolError, {{"error", "expected {\"token\": n}"}});
    if (!owner || token == 0 || presented != int64_t(token)) {
        camera->logCommand("AttachStream", d3proto::dump(args), st::kAccessDenied);
        return reply(conn, h, st::kAccessDenied, {{"error", "no session with that token"}});
    }
    if (udpSession) return reply(conn, h, st::kNotSupported, {{"error", "this session streams over UDP"}});
    if (streamConn && streamConn != conn) streamConn->close();
    forgetFramesInFlight();
    streamConn = conn;
    camera->logCommand("AttachStream", d3proto::dump(args), st::kSuccess);
    // The calibration and then the frames follow the reply, which a shaped
    // link may still be holding back.
    reply(conn, h, st::kSuccess, Json::object(), [this, conn] {
        if (conn->closed() || conn != streamConn) return;
        const std::string calib = d3proto::dump(d3proto::toJson(camera->calibration()));
        conn->send(d3proto::makeMessage(d3proto::MessageType::Event, uint16_t(Command::CalibrationEvent), 0, 0, calib));
        streamAttached = true;
        notifyPump();
    });
}

}  // namespace d3sim
