#include "UpdateTool.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "d3_protocol/Firmware.h"
#include "d3_sdk/Extensions.h"

namespace fwtool {

namespace {

bool toMs(const std::string& text, unsigned& out) {
    char* end = nullptr;
    errno = 0;
    const unsigned long v = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || v == 0 || v > 600000 || text[0] == '-') return false;
    out = unsigned(v);
    return true;
}

// One line, at once: the viewer shows the lines as they come.
void line(std::FILE* f, const std::string& text) {
    std::fprintf(f, "%s\n", text.c_str());
    std::fflush(f);
}

int failure(std::FILE* err, int code, const std::string& reason) {
    line(err, "firmwareUpdateTool: " + reason);
    return code;
}

enum class ReadResult { Ok, Missing, TooLarge };

ReadResult readFile(const std::string& path, std::vector<uint8_t>& out, std::string& why) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        why = std::strerror(errno);
        return ReadResult::Missing;
    }
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    if (size < 0) {
        why = "not a regular file";
        return ReadResult::Missing;
    }
    // A file bigger than any image is refused unread.
    if (uint64_t(size) > d3proto::kMaxFirmwareImage) return ReadResult::TooLarge;
    in.seekg(0);
    out.resize(size_t(size));
    if (size > 0 && !in.read(reinterpret_cast<char*>(out.data()), size)) {
        why = "read error";
        return ReadResult::Missing;
    }
    return ReadResult::Ok;
}

int exitFor(const d3sdk::FirmwareUpdateResult& r) {
    switch (r.code) {
        case INVALID_PARAMETER:
            return r.step == d3sdk::FirmwareStep::Checking ? kImageInvalid : kUsage;
        case DEVICE_NOT_FOUND:
            return kCameraNotFound;
        case ACCESS_DENIED:
            return kAccessDenied;
        case REFUSED_WHILE_STREAMING:
            return kCameraStreaming;
        case DEVICE_BUSY:
            return kCameraBusy;
        case NETWORK_ERROR:
            return kCameraLost;
        case TIMEOUT:
            return r.step == d3sdk::FirmwareStep::Rebooting ? kCameraNotBack : kCameraSilent;
        case FIRMWARE_REJECTED:
            return kImageRejected;
        default:
            break;
    }
    if (r.code == d3sdk::FIRMWARE_WRITE_FAILED || r.code == d3sdk::FLASH_NOT_ERASED) return kWriteFailed;
    if (r.code == FAILED && r.step == d3sdk::FirmwareStep::Rebooting) return kWrongVersion;
    return kOtherFailure;
}

}  // namespace

bool parseArguments(const std::vector<std::string>& args, Arguments& out, std::string& error) {
    out = Arguments();
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&](std::string& into) {
            if (i + 1 >= args.size()) {
                error = a + " needs a value";
                return false;
            }
            into = args[++i];
            return true;
        };
        auto ms = [&](unsigned& into) {
            std::string text;
            if (!value(text)) return false;
            if (toMs(text, into)) return true;
            error = a + " takes milliseconds from 1 to 600000, not \"" + text + "\"";
            return false;
        };
        bool ok = true;
        if (a == "--help")
            out.help = true;
        else if (a == "-f")
            ok = value(out.file);
        else if (a == "-h")
            ok = value(out.device);
        else if (a == "-p")
            ok = value(out.accessWord);
        else if (a == "-e")
            out.erase = true;
        else if (a == "-w")
            out.write = true;
        else if (a == "-r")
            out.reboot = true;
        else if (a == "--search-ms")
            ok = ms(out.searchMs);
        else if (a == "--reply-timeout-ms")
            ok = ms(out.replyTimeoutMs);
        else if (a == "--flash-timeout-ms")
            ok = ms(out.flashTimeoutMs);
        else if (a == "--reboot-timeout-ms")
            ok = ms(out.rebootTimeoutMs);
        else {
            error = "unknown argument \"" + a + "\"";
            return false;
        }
        if (!ok) return false;
    }
    if (out.help) return true;
    const char* missing = out.file.empty()         ? "-f FILE"
                          : out.device.empty()     ? "-h DEVICE"
                          : out.accessWord.empty() ? "-p WORD"
                                                   : nullptr;
    if (missing) {
        error = std::string("missing ") + missing;
        return false;
    }
    return true;
}

std::string helpText() {
    return R"(Usage: firmwareUpdateTool-v1.0.3 -f FILE -h DEVICE -p WORD [-e] [-w] [-r] [options]

Sends a firmware image to a camera and, with -w -r, restarts the camera into it.
Prints one line per step on stdout, and "update successed!" once the camera is back
running the image's version. Options may come in any order.

  -f FILE     the firmware image
  -h DEVICE   the camera: "serial:ip" as the camera list shows it, an address or a serial
  -p WORD     the camera's access word
  -e          erase the camera's update slot first (a write needs an erased slot)
  -w          write the verified image into flash; it runs from the camera's next start
  -r          restart the camera when done and wait until it answers again
              (without -w the camera only verifies the image)
  --search-ms MS          how long to search for the camera (default 1500)
  --reply-timeout-ms MS   how long to wait for each answer (default 3000)
  --flash-timeout-ms MS   how long to wait while the camera erases or writes (default 8000)
  --reboot-timeout-ms MS  how long to wait for the camera to return (default 15000)
  --help      this text

Image format (little-endian): a 64-byte header, then the payload.
  0  magic "D3FW"            4  format version (1)      6  header size (64)
  8  model digit '0'..'4'   12  version, 32 bytes, NUL-terminated printable ASCII
 44  payload length         48  payload CRC-32          60  CRC-32 of bytes 0..59
The payload is 1 byte to 16 MiB. `d3ctl firmware-image` makes images, `d3ctl firmware-info`
checks them.

Exit codes:
  0  done (with -w -r: the camera runs the new firmware)
  2  bad or missing arguments
  3  the image file cannot be read
  4  the file is not a valid image (nothing was sent)
  5  no camera answers to DEVICE
  6  the camera refused the access word
  7  the camera is streaming; stop it first
  8  the camera is busy with another update
  9  the camera was lost during the update (it keeps its old firmware)
 10  the camera stopped answering
 11  the camera rejected the image (e.g. made for another model)
 12  writing into the camera's flash failed, or its update slot was not erased (-e)
 13  the camera did not come back after its restart
 14  the camera came back running another version
 15  any other failure
)";
}

int run(const Arguments& a, std::FILE* out, std::FILE* err) {
    std::vector<uint8_t> image;
    std::string why;
    switch (readFile(a.file, image, why)) {
        case ReadResult::Ok:
            break;
        case ReadResult::Missing:
            return failure(err, kFileUnreadable, "cannot read the image file " + a.file + ": " + why);
        case ReadResult::TooLarge:
            return failure(err, kImageInvalid,
                           a.file + " is larger than any firmware image (" +
                               std::to_string(d3proto::kMaxFirmwareImage) + " bytes)");
    }
    // Checked here first, so a bad file never reaches the camera.
    const d3proto::FirmwareCheck check = d3proto::checkFirmwareImage(image);
    if (!check.ok()) return failure(err, kImageInvalid, a.file + " is not a valid firmware image: " + check.reason);
    line(out, "image " + a.file + ": firmware " + check.header.version + " for model " + check.header.model + ", " +
                  std::to_string(image.size()) + " bytes");

    d3sdk::FirmwareUpdateOptions o;
    o.accessWord = a.accessWord;
    o.erase = a.erase;
    o.write = a.write;
    o.reboot = a.reboot;
    o.searchMs = a.searchMs;
    o.replyTimeoutMs = a.replyTimeoutMs;
    o.flashTimeoutMs = a.flashTimeoutMs;
    o.rebootTimeoutMs = a.rebootTimeoutMs;
    int lastPercent = -1;
    o.progress = [out, &lastPercent](const d3sdk::FirmwareProgress& p) {
        if (p.step == d3sdk::FirmwareStep::Checking) return;  // done above
        if (p.step != d3sdk::FirmwareStep::Sending) return line(out, p.text);
        // At most one line per 5 %, and always the first and the last.
        const int percent = p.bytesTotal ? int(p.bytesSent * 100 / p.bytesTotal) : 100;
        if (lastPercent >= 0 && percent / 5 == lastPercent / 5 && p.bytesSent != p.bytesTotal) return;
        lastPercent = percent;
        line(out, "sending " + std::to_string(percent) + "% (" + std::to_string(p.bytesSent) + "/" +
                      std::to_string(p.bytesTotal) + " bytes)");
    };
    d3sdk::FirmwareUpdateResult r;
    if (d3sdk::UpdateFirmware(a.device, image, o, r) != SUCCESS) return failure(err, exitFor(r), r.reason);

    if (a.write && a.reboot) {
        line(out, kSuccessMarker);
    } else if (a.write) {
        line(out, "firmware " + r.imageVersion + " written; it runs from the camera's next start (no -r)");
    } else if (a.reboot) {
        line(out, "nothing written (no -w): the camera restarted with firmware " + r.versionAfter);
    } else {
        line(out, "firmware " + r.imageVersion + " verified by the camera; nothing written (no -w)");
    }
    return kOk;
}

}  // namespace fwtool
