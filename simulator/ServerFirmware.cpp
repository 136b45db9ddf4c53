// The firmware endpoint: one update at a time, on whichever control connection
// began it (no session needed, so a tool can update a camera an application
// holds open), received in checked chunks, verified whole with the image
// codec, then written into flash and rebooted into on request.
#include <cmath>
#include <cstdio>

#include "ServerImpl.h"
#include "d3_protocol/Firmware.h"

namespace d3sim {

using d3proto::Command;
using d3proto::Json;
namespace st = d3proto::status;

namespace {

Json why(const std::string& text) { return {{"error", text}}; }

}  // namespace

void CameraServer::Impl::flashOperation(int ms, std::function<void()> done) {
    flashBusy = true;
    const uint64_t generation = ++flashGeneration;
    flashTimer.expires_after(std::chrono::milliseconds(std::max(ms, 0)));
    flashTimer.async_wait([this, generation, done = std::move(done)](const asio::error_code& ec) {
        // Cancelled by a stop, kill or reboot: the power went, the operation with it.
        if (ec || generation != flashGeneration || stopping || killed) return;
        flashBusy = false;
        done();
    });
}

void CameraServer::Impl::cancelFlashOperation() {
    ++flashGeneration;
    flashTimer.cancel();
    flashBusy = false;
}

void CameraServer::Impl::endFirmwareUpdate(const char* reason) {
    if (!firmware.conn) return;
    camera->logCommand("FirmwareUpdateEnded", d3proto::dump(Json{{"reason", reason}}), st::kSuccess);
    firmware = FirmwareTransfer();
}

void CameraServer::Impl::checkFirmwareIdle() {
    // A client that went away without closing its connection must not hold
    // the update slot for ever; the camera's own erase or write does not count.
    if (!firmware.conn || flashBusy || faults.paused()) return;
    if (Clock::now() - firmware.lastActivity <= std::chrono::milliseconds(config.firmwareIdleTimeoutMs)) return;
    Connection::Ptr conn = firmware.conn;
    endFirmwareUpdate("client silent");
    conn->close();
}

void CameraServer::Impl::firmwareBegin(const Connection::Ptr& conn, const d3proto::Header& h, const Json& args) {
    Json logged = args;
    logged.erase("accessWord");  // the log is readable by anyone with the control socket
    auto answer = [&](int32_t status, const Json& body) {
        camera->logCommand("FirmwareBegin", d3proto::dump(logged), status);
        reply(conn, h, status, body);
    };
    d3proto::FirmwareBeginMsg m;
    if (!d3proto::fromJson(args, m))
        return answer(st::kProtocolError, why("expected {\"accessWord\": text, \"size\": n, \"erase\": bool}"));
    std::string expected;
    {
        std::lock_guard<std::mutex> lock(mutex);
        expected = accessWord;
    }
    if (m.accessWord != expected) return answer(st::kAccessDenied, why("wrong access word"));
    if (m.size <= int64_t(d3proto::kFirmwareHeaderSize) || m.size > int64_t(d3proto::kMaxFirmwareImage))
        return answer(st::kInvalidParameter, why("an image is " + std::to_string(d3proto::kFirmwareHeaderSize + 1) +
                                                 " to " + std::to_string(d3proto::kMaxFirmwareImage) + " bytes"));
    if (camera->streaming())
        return answer(st::kRefusedWhileStreaming, why("the camera is streaming; stop the stream first"));
    // One update at a time, and none while the flash is busy (a write goes on
    // after its update has ended).
    if (flashBusy || (firmware.conn && firmware.conn != conn))
        return answer(st::kBusy, why("another firmware update is in progress"));

    // A second Begin on the same connection starts over.
    firmware = FirmwareTransfer();
    firmware.conn = conn;
    firmware.size = uint32_t(m.size);
    firmware.lastActivity = Clock::now();
    const d3proto::FirmwareProgressMsg progress{0, firmware.size, uint32_t(d3proto::kMaxFirmwareChunk)};
    if (!m.erase) return answer(st::kSuccess, d3proto::toJson(progress));
    camera->logCommand("FirmwareBegin", d3proto::dump(logged), st::kSuccess);
    flashOperation(config.flashEraseMs, [this, conn, h, progress] {
        camera->setUpdateSlotErased(true);
        if (firmware.conn != conn) return;  // the client left meanwhile
        firmware.lastActivity = Clock::now();
        reply(conn, h, st::kSuccess, d3proto::toJson(progress));
    });
}

void CameraServer::Impl::firmwareChunk(const Connection::Ptr& conn, const d3proto::Message& msg) {
    const d3proto::Header& h = msg.header;
    d3proto::FirmwareChunkView chunk;
    const d3proto::ChunkError decoded = d3proto::decodeFirmwareChunk(msg.payload.data(), msg.payload.size(), chunk);
    auto answer = [&](int32_t status, const Json& body) {
        Json logged = {{"bytes", msg.payload.size()}};
        if (decoded != d3proto::ChunkError::TooShort) logged["offset"] = d3proto::getU32(msg.payload.data());
        camera->logCommand("FirmwareChunk", d3proto::dump(logged), status);
        reply(conn, h, status, body);
    };
    if (conn != firmware.conn)
        return answer(st::kNotConnected, why("no firmware update in progress on this connection"));
    if (flashBusy) return answer(st::kBusy, why("the camera is erasing its update slot"));
    firmware.lastActivity = Clock::now();
    switch (decoded) {
        case d3proto::ChunkError::None:
            break;
        case d3proto::ChunkError::TooShort:
        case d3proto::ChunkError::BadChecksum:
            return answer(st::kProtocolError, why(d3proto::toString(decoded)));
        case d3proto::ChunkError::Empty:
        case d3proto::ChunkError::TooLarge:
            return answer(st::kInvalidParameter, why(d3proto::toString(decoded)));
    }
    const size_t received = firmware.image.size();
    if (chunk.offset != received)
        return answer(st::kInvalidParameter, why("expected the chunk at offset " + std::to_string(received) +
                                                 ", got offset " + std::to_string(chunk.offset)));
    if (received + chunk.size > firmware.size)
        return answer(st::kInvalidParameter,
                      why("the chunk runs past the announced " + std::to_string(firmware.size) + " bytes"));

    TransferFault fault;
    {
        std::lock_guard<std::mutex> lock(mutex);
        fault = transferFault;
        if (fault != TransferFault::None &&
            double(received + chunk.size) * 100.0 < transferFaultPercent * double(firmware.size))
            fault = TransferFault::None;
        if (fault != TransferFault::None) transferFault = TransferFault::None;
    }
    if (fault == TransferFault::Lose) {
        camera->logCommand("FirmwareChunk", d3proto::dump(Json{{"offset", chunk.offset}, {"fault", "lose"}}),
                           st::kFailed);
        endFirmwareUpdate("lost (fault)");
        return conn->close();
    }
    if (fault == TransferFault::Stall) {
        camera->logCommand("FirmwareChunk", d3proto::dump(Json{{"offset", chunk.offset}, {"fault", "stall"}}),
                           st::kFailed);
        firmware.stalled = true;
        return;
    }
    firmware.image.insert(firmware.image.end(), chunk.data, chunk.data + chunk.size);
    answer(st::kSuccess, d3proto::toJson(d3proto::FirmwareProgressMsg{uint32_t(firmware.image.size()), firmware.size,
                                                                      uint32_t(d3proto::kMaxFirmwareChunk)}));
}

void CameraServer::Impl::firmwareCommit(const Connection::Ptr& conn, const d3proto::Header& h, const Json& args) {
    auto answer = [&](int32_t status, const Json& body, std::function<void()> done = {}) {
        camera->logCommand("FirmwareCommit", d3proto::dump(args), status);
        reply(conn, h, status, body, std::move(done));
    };
    if (conn != firmware.conn)
        return answer(st::kNotConnected, why("no firmware update in progress on this connection"));
    if (flashBusy) return answer(st::kBusy, why("the camera is erasing its update slot"));
    d3proto::FirmwareCommitMsg m;
    if (!d3proto::fromJson(args, m))
        return answer(st::kProtocolError, why("expected {\"write\": bool, \"reboot\": bool}"));

    // Whatever happens next, this update is over; the connection stays.
    const std::vector<uint8_t> image = std::move(firmware.image);
    const uint32_t announced = firmware.size;
    endFirmwareUpdate("committed");

    if (image.size() != announced)
        return answer(st::kFirmwareRejected, why("only " + std::to_string(image.size()) + " of the " +
                                                 std::to_string(announced) + " bytes announced have arrived"));
    const d3proto::FirmwareCheck check = d3proto::checkFirmwareImage(image);
    if (!check.ok()) return answer(st::kFirmwareRejected, why(check.reason));
    if (check.header.model != camera->model())
        return answer(st::kFirmwareRejected, why(std::string("the image is for model ") + check.header.model + " (" +
                                                 Camera::modelName(check.header.model) + "); this camera is model " +
                                                 camera->model() + " (" + Camera::modelName(camera->model()) + ")"));

    d3proto::FirmwareCommitReply result;
    result.version = check.header.version;
    result.rebooting = m.reboot;
    // Reply first, then go away, as for the other rebooting commands.
    auto afterReply = [this, reboot = m.reboot] {
        if (reboot) asio::post(io, [this] { beginReboot(); });
    };
    if (!m.write) return answer(st::kSuccess, d3proto::toJson(result), afterReply);
    if (!camera->updateSlotErased())
        return answer(st::kFlashNotErased, why("the update slot is not erased; begin the update with erase"));

    camera->logCommand("FirmwareWrite", d3proto::dump(Json{{"version", result.version}}), st::kSuccess);
    flashOperation(config.flashWriteMs, [this, conn, h, args, result, afterReply]() mutable {
        camera->setUpdateSlotErased(false);
        bool bad;
        {
            std::lock_guard<std::mutex> lock(mutex);
            bad = badFlash;
            badFlash = false;
        }
        int32_t status = st::kSuccess;
        Json body;
        if (bad) {
            status = st::kFlashWriteFailed;
            body =
                why("verification after writing failed: the flash did not take the image; the camera keeps "
                    "firmware " +
                    camera->firmwareVersion());
        } else if (!camera->installFirmware(result.version)) {
            status = st::kFileError;
            body = why("the camera could not store the new firmware version");
        } else {
            result.written = true;
            body = d3proto::toJson(result);
        }
        camera->logCommand("FirmwareCommit", d3proto::dump(args), status);
        // The write completes even when the client has gone; so does the reboot.
        if (status != st::kSuccess || !result.rebooting) return reply(conn, h, status, body);
        reply(conn, h, status, body, afterReply);
    });
}

// --- faults

void CameraServer::loseFirmwareUpdateAt(double percent) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->transferFault = Impl::TransferFault::Lose;
    impl_->transferFaultPercent = percent;
}

void CameraServer::stallFirmwareUpdateAt(double percent) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->transferFault = Impl::TransferFault::Stall;
    impl_->transferFaultPercent = percent;
}

void CameraServer::failNextFlashWrite() {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->badFlash = true;
}

void CameraServer::setAccessWord(const std::string& word) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->accessWord = word;
}

void CameraServer::clearFirmwareFaults() {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->transferFault = Impl::TransferFault::None;
    impl_->badFlash = false;
}

std::string CameraServer::firmwareFaults() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    std::string out;
    char buf[64];
    if (impl_->transferFault != Impl::TransferFault::None) {
        std::snprintf(buf, sizeof buf, "%s@%g%%", impl_->transferFault == Impl::TransferFault::Lose ? "lose" : "stall",
                      impl_->transferFaultPercent);
        out = buf;
    }
    if (impl_->badFlash) out += out.empty() ? "badflash" : ",badflash";
    return out.empty() ? "none" : out;
}

}  // namespace d3sim
