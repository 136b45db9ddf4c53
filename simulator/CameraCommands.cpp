// Camera::execute: what each control command does to the camera's settings.
#include <algorithm>

#include "Camera.h"

namespace d3sim {

using d3proto::Command;
using d3proto::Json;
namespace st = d3proto::status;

namespace {

// A request whose fields have the wrong type is a protocol error; a
// well-formed value outside its range is an invalid parameter.
int32_t readInt(const Json& args, int& v) {
    return d3proto::getInt(args, "value", v) ? st::kSuccess : st::kProtocolError;
}

int32_t setRange(const Json& args, int lo, int hi, int& field) {
    int v;
    if (readInt(args, v) != st::kSuccess) return st::kProtocolError;
    if (v < lo || v > hi) return st::kInvalidParameter;
    field = v;
    return st::kSuccess;
}

int32_t setFilter(const Json& args, FilterSetting& f) {
    d3proto::FilterMsg m;
    if (!d3proto::fromJson(args, m)) return st::kProtocolError;
    if (m.hasValue && (m.value < 0 || m.value > 65535)) return st::kInvalidParameter;
    f.enable = m.enable;
    if (m.hasValue) {
        f.value = m.value;
        f.value2 = m.value2;
    }
    return st::kSuccess;
}

Json filterReply(const FilterSetting& f) {
    return d3proto::toJson(d3proto::FilterMsg{f.enable, f.value, f.value2, true});
}

// A frame rate caps both exposures: an exposure longer than the frame period is impossible.
void applyExposureLimits(CameraSettings& s) {
    const ExposureLimit lim = exposureLimitForFps(s.frameRate);
    s.tofExposureUs = std::min(s.tofExposureUs, lim.tofMaxUs);
    s.rgbExposureUs = std::min(s.rgbExposureUs, lim.rgbMaxUs);
}

bool isLoopback(uint32_t ip) { return (ip >> 24) == 127; }

bool sameFilter(const FilterSetting& a, const FilterSetting& b) {
    return a.enable == b.enable && a.value == b.value && a.value2 == b.value2;
}

bool sameSettings(const CameraSettings& a, const CameraSettings& b) {
    return a.tofExposureUs == b.tofExposureUs && a.tofAutoExposure == b.tofAutoExposure &&
           a.singleIntegral == b.singleIntegral && a.hdr == b.hdr && a.frameRate == b.frameRate &&
           a.irGamma == b.irGamma && a.triggerMode == b.triggerMode && a.hardTriggerDelayMs == b.hardTriggerDelayMs &&
           a.hardTriggerDelayUs == b.hardTriggerDelayUs && a.frequencyMode == b.frequencyMode &&
           sameFilter(a.timeMedian, b.timeMedian) && sameFilter(a.flyPixel, b.flyPixel) &&
           sameFilter(a.confidence, b.confidence) && sameFilter(a.spatial, b.spatial) &&
           a.rgbAutoExposure == b.rgbAutoExposure && a.rgbExposureUs == b.rgbExposureUs && a.rgbGain == b.rgbGain &&
           a.rgbContrast == b.rgbContrast;
}

// A replayed capture can still be paced and triggered; everything else was
// fixed when it was recorded.
bool replayCanHonour(Command cmd) {
    return cmd == Command::SetFrameRate || cmd == Command::SetTriggerMode || cmd == Command::SetHardTriggerDelay;
}

}  // namespace

int32_t Camera::execute(Command cmd, const Json& args, Json& reply, AfterReply& after) {
    after = AfterReply::Nothing;
    reply = Json::object();
    const d3proto::CommandInfo* info = d3proto::findCommand(uint16_t(cmd));
    int32_t status = st::kSuccess;
    if (!info) {
        status = st::kNotSupported;
    } else if (takeInjectedFailure(info->name, status)) {
        // fails without acting, as a camera refusing the command would
    } else if (info->rgbOnly && !hasRgb()) {
        status = st::kNotSupported;
    } else {
        switch (cmd) {
            case Command::GetImageInfo:
                reply = d3proto::toJson(imageInfo());
                break;
            case Command::GetTofIntrinsics:
                reply = d3proto::toJson(calibration().tof);
                break;
            case Command::GetRgbIntrinsics:
                reply = d3proto::toJson(calibration().rgb);
                break;
            case Command::GetExtrinsics:
                reply = d3proto::toJson(calibration().extrinsics);
                break;
            case Command::StartStream:
                streaming_ = true;
                break;
            case Command::StopStream:
                status = streaming_.exchange(false) ? st::kSuccess : st::kNotStreaming;
                break;
            case Command::SoftTrigger:
                status = settings().triggerMode == 1 ? st::kSuccess : st::kNotSupported;
                break;
            case Command::SaveConfig:
            case Command::DeleteConfig:
            case Command::FactoryDefaults:
            case Command::SetNetworkMode:
                status = admin(cmd, args, after);
                break;
            default:
                if (info->args == d3proto::Args::None && info->name[0] == 'G') {
                    std::lock_guard<std::mutex> lock(mutex_);
                    getParameter(cmd, settings_, reply);
                } else {
                    std::lock_guard<std::mutex> lock(mutex_);
                    CameraSettings s = settings_;
                    status = setParameter(cmd, args, s);
                    // Asking a replay for what it already has is no change, so
                    // a client restoring its settings is not refused.
                    if (status == st::kSuccess && recording_ && !replayCanHonour(cmd) && !sameSettings(s, settings_))
                        status = st::kRefusedByRecording;
                    if (status == st::kSuccess) settings_ = s;
                }
        }
    }
    logCommand(info ? info->name : "Unknown", d3proto::dump(args), status);
    return status;
}

void Camera::getParameter(Command cmd, const CameraSettings& s, Json& reply) const {
    auto value = [&reply](auto v) { reply = {{"value", v}}; };
    switch (cmd) {
        case Command::GetTofExposureTime:
            // Single integration has no programmable exposure: the camera reports 0.
            if (s.singleIntegral)
                value(0);
            else
                value(s.tofAutoExposure && lastExposureUs_ > 0 ? int(lastExposureUs_) : s.tofExposureUs);
            break;
        case Command::GetTofExposureMode:
            value(s.tofAutoExposure ? 0 : 1);
            break;
        case Command::GetSingleIntegralMode:
            value(s.singleIntegral);
            break;
        case Command::GetHdr:
            value(s.hdr);
            break;
        case Command::GetFrameRate:
            value(s.frameRate);
            break;
        case Command::GetIrGamma:
            value(s.irGamma);
            break;
        case Command::GetTriggerMode:
            value(s.triggerMode);
            break;
        case Command::GetHardTriggerDelay:
            reply = d3proto::toJson(d3proto::DelayMsg{s.hardTriggerDelayMs, s.hardTriggerDelayUs});
            break;
        case Command::GetFrequencyMode:
            value(s.frequencyMode);
            break;
        case Command::GetTimeMedianFilter:
            reply = filterReply(s.timeMedian);
            break;
        case Command::GetFlyPixelFilter:
            reply = filterReply(s.flyPixel);
            break;
        case Command::GetConfidenceFilter:
            reply = filterReply(s.confidence);
            break;
        case Command::GetSpatialFilter:
            reply = filterReply(s.spatial);
            break;
        case Command::GetRgbExposureMode:
            value(s.rgbAutoExposure ? 0 : 1);
            break;
        case Command::GetRgbExposureTime:
            value(s.rgbExposureUs);
            break;
        case Command::GetRgbGain:
            value(s.rgbGain);
            break;
        case Command::GetRgbContrast:
            value(s.rgbContrast);
            break;
        default:
            break;
    }
}

int32_t Camera::setParameter(Command cmd, const Json& args, CameraSettings& s) {
    int v = 0;
    bool b = false;
    switch (cmd) {
        case Command::SetTofExposureTime:
            if (readInt(args, v) != st::kSuccess) return st::kProtocolError;
            if (v < 1) return st::kInvalidParameter;
            s.tofExposureUs = std::min(v, exposureLimitForFps(s.frameRate).tofMaxUs);
            s.tofAutoExposure = false;
            return st::kSuccess;
        case Command::SetTofAutoExposure:
            s.tofAutoExposure = true;
            return st::kSuccess;
        case Command::SetSingleIntegralMode:
            if (args.contains("value") && !d3proto::getBool(args, "value", b)) return st::kProtocolError;
            s.singleIntegral = args.contains("value") ? b : true;
            if (s.singleIntegral) s.hdr = false;  // one integration cannot merge two exposures
            return st::kSuccess;
        case Command::SetHdr:
            if (!d3proto::getBool(args, "value", b)) return st::kProtocolError;
            s.hdr = b;
            // Any HDR command reprograms the integration scheme, which is how
            // a client leaves single-integration (fast) mode.
            s.singleIntegral = false;
            return st::kSuccess;
        case Command::SetFrameRate: {
            const int32_t r = setRange(args, 1, 25, s.frameRate);
            if (r == st::kSuccess) applyExposureLimits(s);
            return r;
        }
        case Command::SetIrGamma:
            return setRange(args, 0, 255, s.irGamma);
        case Command::SetTriggerMode:
            if (readInt(args, v) != st::kSuccess) return st::kProtocolError;
            // Model 0 has no trigger input at all.
            if (v < 0 || v > 3 || (model() == '0' && v != 0)) return st::kTriggerModeRefused;
            s.triggerMode = v;
            return st::kSuccess;
        case Command::SetHardTriggerDelay: {
            d3proto::DelayMsg d;
            if (!d3proto::fromJson(args, d)) return st::kProtocolError;
            if (d.ms < 0 || d.ms > 10000 || d.us < 0 || d.us > 999) return st::kInvalidParameter;
            s.hardTriggerDelayMs = d.ms;
            s.hardTriggerDelayUs = d.us;
            return st::kSuccess;
        }
        case Command::SetFrequencyMode:
            return setRange(args, 0, 1, s.frequencyMode);
        case Command::SetTimeMedianFilter:
            return setFilter(args, s.timeMedian);
        case Command::SetFlyPixelFilter:
            return setFilter(args, s.flyPixel);
        case Command::SetConfidenceFilter:
            return setFilter(args, s.confidence);
        case Command::SetSpatialFilter:
            return setFilter(args, s.spatial);
        case Command::SetRgbExposureMode:
            if (readInt(args, v) != st::kSuccess) return st::kProtocolError;
            if (v != 0 && v != 1) return st::kInvalidParameter;
            s.rgbAutoExposure = v == 0;
            return st::kSuccess;
        case Command::SetRgbExposureTime:
            if (readInt(args, v) != st::kSuccess) return st::kProtocolError;
            if (v < 1) return st::kInvalidParameter;
            s.rgbExposureUs = std::min(v, exposureLimitForFps(s.frameRate).rgbMaxUs);
            return st::kSuccess;
        case Command::SetRgbGain:
            return setRange(args, 0, 1023, s.rgbGain);
        case Command::SetRgbContrast:
            return setRange(args, 100, 500, s.rgbContrast);
        default:
            return st::kNotSupported;
    }
}

int32_t Camera::admin(Command cmd, const Json& args, AfterReply& after) {
    switch (cmd) {
        case Command::SaveConfig:
            return store_.saveConfig(settings()) ? st::kSuccess : st::kFileError;
        case Command::DeleteConfig:
        case Command::FactoryDefaults:
            // Both forget the stored settings; the reboot then comes up with the defaults.
            if (!store_.deleteConfig()) return st::kFileError;
            after = AfterReply::Reboot;
            return st::kSuccess;
        case Command::SetNetworkMode: {
            d3proto::NetworkMsg m;
            if (!d3proto::fromJson(args, m)) return st::kProtocolError;
            uint32_t ip = 0, mask = 0, gw = 0, current = 0;
            NetworkSettings n = network();
            d3proto::parseIpv4(n.ip, current);
            if (!d3proto::parseIpv4(m.netmask, mask) || (!m.gateway.empty() && !d3proto::parseIpv4(m.gateway, gw)))
                return st::kInvalidParameter;
            if (!m.dhcp) {
                if (!d3proto::parseIpv4(m.ip, ip)) return st::kInvalidParameter;
                const uint32_t host = ip & ~mask;
                if (host == 0 || host == ~mask) return st::kInvalidParameter;
                // A simulated camera on the loopback could never be reached elsewhere.
                if (isLoopback(current) && !isLoopback(ip)) return st::kInvalidParameter;
                n.ip = m.ip;
            }
            n.netmask = m.netmask;
            if (!m.gateway.empty()) n.gateway = m.gateway;
            n.dhcp = m.dhcp;
            if (!store_.saveNetwork(n)) return st::kFileError;
            after = AfterReply::Reboot;
            return st::kSuccess;
        }
        default:
            return st::kNotSupported;
    }
}

}  // namespace d3sim
