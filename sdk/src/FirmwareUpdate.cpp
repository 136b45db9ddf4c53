// UpdateFirmware: finds the camera, sends the image over a control connection
// of its own (FirmwareBegin, FirmwareChunk..., FirmwareCommit) and follows the
// reboot until the camera answers a search again.
#include <algorithm>

#include "ControlChannel.h"
#include "DeviceLocator.h"
#include "Discovery.h"
#include "d3_protocol/Firmware.h"
#include "d3_sdk/Extensions.h"

namespace d3sdk {

namespace {

using Clock = std::chrono::steady_clock;
using d3proto::Command;
using d3proto::Json;
using ms = std::chrono::milliseconds;

constexpr int32_t kNetworkError = 33;

std::string cameraReason(const Json& reply) {
    auto it = reply.find("error");
    return it != reply.end() && it->is_string() ? it->get<std::string>() : std::string();
}

std::string bytes(uint64_t n) { return std::to_string(n) + " bytes"; }

class Updater {
public:
    Updater(const std::string& device, const std::vector<uint8_t>& image, const FirmwareUpdateOptions& o,
            FirmwareUpdateResult& r)
        : device_(device), image_(image), o_(o), r_(r) {}

    ReturnCode run() {
        r_ = FirmwareUpdateResult();
        if (!checkImage() || !find() || !connect() || !begin() || !send() || !commit()) return r_.code;
        if (rebooting_ && !followReboot()) return r_.code;
        r_.step = FirmwareStep::Done;
        r_.code = SUCCESS;
        return SUCCESS;
    }

private:
    struct Outcome {
        int32_t status;
        Json reply;
    };

    void progress(FirmwareStep step, std::string text, uint64_t sent = 0) {
        r_.step = step;
        if (o_.progress) o_.progress(FirmwareProgress{step, sent, image_.size(), std::move(text)});
    }

    bool fail(ReturnCode code, std::string reason) {
        r_.code = code;
        r_.reason = std::move(reason);
        return false;
    }

    // A failed reply's status as the SDK's code, with the camera's reason or what we waited for.
    bool failReply(const Outcome& o, const std::string& during, ms waited) {
        const std::string camera = cameraReason(o.reply);
        switch (o.status) {
            case d3proto::status::kTimeout:
                return fail(TIMEOUT,
                            "no answer from the camera within " + std::to_string(waited.count()) + " ms to " + during);
            case kNetworkError:
                return fail(NETWORK_ERROR, "the camera closed the connection during " + during);
            case d3proto::status::kAccessDenied:
                return fail(ACCESS_DENIED,
                            "the camera refused the access word" + (camera.empty() ? "" : ": " + camera));
            default:
                return fail(ReturnCode(o.status),
                            "the camera refused " + during + (camera.empty() ? std::string() : ": " + camera));
        }
    }

    bool checkImage() {
        progress(FirmwareStep::Checking, "checking the image");
        const d3proto::FirmwareCheck c = d3proto::checkFirmwareImage(image_);
        if (!c.ok()) return fail(INVALID_PARAMETER, "the image is not valid: " + c.reason);
        r_.imageVersion = c.header.version;
        r_.imageModel = c.header.model;
        return true;
    }

    bool find() {
        progress(FirmwareStep::Locating, "looking for camera " + device_);
        const ReturnCode rc = locate(device_, info_, Clock::now() + ms(o_.searchMs));
        if (rc == INVALID_PARAMETER) return fail(INVALID_PARAMETER, "\"" + device_ + "\" is not a camera's name");
        if (rc != SUCCESS)
            return fail(DEVICE_NOT_FOUND, "no camera answers as \"" + device_ + "\" (searched for " +
                                              std::to_string(o_.searchMs) + " ms)");
        r_.serial = info_.serial;
        r_.ip = info_.ip;
        r_.versionBefore = info_.firmwareVersion;
        progress(FirmwareStep::Locating,
                 "found " + info_.serial + " at " + info_.ip + ", firmware " + info_.firmwareVersion);
        return true;
    }

    bool connect() {
        progress(FirmwareStep::Connecting, "connecting to " + info_.ip);
        if (!channel_.connect(info_.ip, info_.controlPort, ms(o_.replyTimeoutMs)))
            return fail(NETWORK_ERROR,
                        "cannot connect to the camera at " + info_.ip + ":" + std::to_string(info_.controlPort));
        return true;
    }

    Outcome call(Command cmd, const Json& args, ms timeout) {
        Outcome o;
        o.status = channel_.request(cmd, args, &o.reply, timeout);
        return o;
    }

    bool begin() {
        progress(FirmwareStep::Beginning, o_.erase ? "erasing the update slot" : "starting the update");
        const ms timeout(o_.erase ? o_.flashTimeoutMs : o_.replyTimeoutMs);
        d3proto::FirmwareBeginMsg m{o_.accessWord, int64_t(image_.size()), o_.erase};
        const Outcome o = call(Command::FirmwareBegin, d3proto::toJson(m), timeout);
        if (o.status == d3proto::status::kBusy)
            return fail(DEVICE_BUSY, "the camera is busy with another firmware update");
        if (o.status == d3proto::status::kRefusedWhileStreaming)
            return fail(REFUSED_WHILE_STREAMING, "the camera is streaming; stop the stream first");
        if (o.status != SUCCESS) return failReply(o, o_.erase ? "the erase" : "the start of the update", timeout);
        d3proto::FirmwareProgressMsg p;
        if (!d3proto::fromJson(o.reply, p) || p.size != image_.size())
            return fail(PROTOCOL_ERROR, "the camera's answer to the start of the update makes no sense");
        maxChunk_ = p.maxChunk;
        return true;
    }

    bool send() {
        const uint64_t total = image_.size();
        progress(FirmwareStep::Sending, "sending", 0);
        std::vector<uint8_t> wire;
        const ms timeout(o_.replyTimeoutMs);
        for (uint64_t offset = 0; offset < total;) {
            const size_t n = size_t(std::min<uint64_t>(maxChunk_, total - offset));
            d3proto::encodeFirmwareChunk(uint32_t(offset), image_.data() + offset, n, wire);
            Outcome o;
            o.status = channel_.requestBytes(Command::FirmwareChunk, wire, &o.reply, timeout);
            const std::string after = std::to_string(offset) + " of " + bytes(total);
            if (o.status == kNetworkError)
                return fail(NETWORK_ERROR, "the camera was lost after " + after + " had arrived");
            if (o.status == d3proto::status::kTimeout)
                return fail(TIMEOUT, "the camera stopped answering after " + after +
                                         " (no answer to the chunk at offset " + std::to_string(offset) + " within " +
                                         std::to_string(timeout.count()) + " ms)");
            if (o.status != SUCCESS) return failReply(o, "the chunk at offset " + std::to_string(offset), timeout);
            d3proto::FirmwareProgressMsg p;
            if (!d3proto::fromJson(o.reply, p) || p.received != offset + n)
                return fail(PROTOCOL_ERROR, "the camera acknowledged a different amount than was sent after " + after);
            offset += n;
            progress(FirmwareStep::Sending, "sending", offset);
        }
        return true;
    }

    bool commit() {
        progress(FirmwareStep::Verifying, o_.write ? "verifying and writing firmware " + r_.imageVersion
                                                   : "verifying firmware " + r_.imageVersion);
        const ms timeout(o_.write ? o_.flashTimeoutMs : o_.replyTimeoutMs);
        const Outcome o =
            call(Command::FirmwareCommit, d3proto::toJson(d3proto::FirmwareCommitMsg{o_.write, o_.reboot}), timeout);
        const std::string camera = cameraReason(o.reply);
        switch (o.status) {
            case SUCCESS:
                break;
            case d3proto::status::kFirmwareRejected:
                return fail(FIRMWARE_REJECTED, "the camera rejected the image: " + camera);
            case FIRMWARE_WRITE_FAILED:
                return fail(FIRMWARE_WRITE_FAILED, "writing the firmware failed: " + camera);
            case FLASH_NOT_ERASED:
                return fail(FLASH_NOT_ERASED,
                            "the camera cannot write into an update slot that was not erased: " + camera);
            default:
                return failReply(o, o_.write ? "the verification and write" : "the verification", timeout);
        }
        d3proto::FirmwareCommitReply reply;
        if (!d3proto::fromJson(o.reply, reply) || reply.version != r_.imageVersion || reply.written != o_.write)
            return fail(PROTOCOL_ERROR, "the camera's answer to the commit makes no sense");
        r_.written = reply.written;
        rebooting_ = reply.rebooting;
        progress(FirmwareStep::Verifying, reply.written ? "firmware " + reply.version + " written"
                                                        : "firmware " + reply.version + " verified (nothing written)");
        return true;
    }

    bool followReboot() {
        progress(FirmwareStep::Rebooting, "rebooting");
        const auto start = Clock::now();
        const auto deadline = start + ms(o_.rebootTimeoutMs);
        // The camera closes every connection as it goes down; until then it
        // may still answer a search with the firmware it is leaving.
        if (!channel_.waitBroken(leftUntil(deadline, ms(o_.replyTimeoutMs))))
            return fail(TIMEOUT, "the camera did not restart within " + std::to_string(o_.replyTimeoutMs) +
                                     " ms of confirming the update");
        channel_.close();
        progress(FirmwareStep::Rebooting, "waiting for the camera to come back");
        const uint16_t port = discoveryPort();
        for (int round = 0; Clock::now() < deadline; ++round) {
            // Where it was, mostly; now and then anywhere by serial, in case it moved.
            const auto wait = leftUntil(deadline, ms(250));
            const auto found =
                round % 4 == 3 ? discover(broadcastAddresses(), port, wait) : discover({info_.ip}, port, wait, 1);
            for (const auto& d : found) {
                if (d.serial != info_.serial) continue;
                r_.rebooted = true;
                r_.ip = d.ip;
                r_.versionAfter = d.firmwareVersion;
                progress(FirmwareStep::Rebooting, "camera back with firmware " + d.firmwareVersion);
                if (r_.written && d.firmwareVersion != r_.imageVersion)
                    return fail(FAILED,
                                "the camera came back with firmware " + d.firmwareVersion + ", not " + r_.imageVersion);
                return true;
            }
        }
        return fail(TIMEOUT, "the camera did not answer a search within " + std::to_string(o_.rebootTimeoutMs) +
                                 " ms of going down for its reboot");
    }

    const std::string& device_;
    const std::vector<uint8_t>& image_;
    const FirmwareUpdateOptions& o_;
    FirmwareUpdateResult& r_;
    d3proto::DeviceInfo info_;
    ControlChannel channel_;
    uint32_t maxChunk_ = uint32_t(d3proto::kMaxFirmwareChunk);
    bool rebooting_ = false;
};

}  // namespace

ReturnCode UpdateFirmware(const std::string& device, const std::vector<uint8_t>& image,
                          const FirmwareUpdateOptions& options, FirmwareUpdateResult& result) {
    return Updater(device, image, options, result).run();
}

}  // namespace d3sdk
