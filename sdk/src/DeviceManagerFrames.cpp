// Frame calls. Each waits for the next frame the application has not had
// yet (bounded by SetTimeout), then copies into every container the caller
// passed; a container keeps its storage when the size does not change.
//
// GetRgbToDepthData fills `rgb` and `rgbToDepth` alike with the colour
// sampled at each depth pixel (640x480, black where the colour camera cannot
// see the surface). GetDepthToRgbData fills `depthToRgb` with depth as seen
// from the colour camera at its resolution and `rgb` with the colour image.
#include <cstring>

#include "DeviceManagerImpl.h"

using d3sdk::Frame;
using d3sdk::Session;

namespace {

template <typename T, typename Image>
void copyInto(DataContainer<T>* dst, const Image& src) {
    if (!dst) return;
    dst->resize(src.rows(), src.cols());
    std::memcpy(dst->data(), src.data(), size_t(src.rows()) * src.cols() * sizeof(T));
}

}  // namespace

ReturnCode DeviceManager::GetTofData(DataContainer<uint16_t>* depth, DataContainer<PointXYZ>* points,
                                     DataContainer<uint8_t>* ir, DataContainer<uint16_t>* amplitude) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->requireForFrames(s);
    if (rc != SUCCESS) return rc;
    return s->withNextFrame([&](const Frame& f) {
        copyInto(depth, f.depth);
        copyInto(ir, f.ir);
        copyInto(amplitude, f.amplitude);
        if (points) s->points(f, *points);
    });
}

ReturnCode DeviceManager::GetRgbTofData(DataContainer<RGB888Pixel>* rgb, DataContainer<uint16_t>* depth,
                                        DataContainer<PointXYZ>* points, DataContainer<uint8_t>* ir,
                                        DataContainer<uint16_t>* amplitude) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->requireForFrames(s);
    if (rc != SUCCESS) return rc;
    if (!s->hasRgb()) return NOT_SUPPORTED;
    return s->withNextFrame([&](const Frame& f) {
        copyInto(rgb, f.rgb);
        copyInto(depth, f.depth);
        copyInto(ir, f.ir);
        copyInto(amplitude, f.amplitude);
        if (points) s->points(f, *points);
    });
}

ReturnCode DeviceManager::GetRgbToDepthData(DataContainer<RGB888Pixel>& rgb, DataContainer<PointXYZRGBI>* rgbPoints,
                                            DataContainer<PointXYZ>* points, DataContainer<uint16_t>* depth,
                                            DataContainer<RGB888Pixel>* rgbToDepth, DataContainer<uint8_t>* ir,
                                            DataContainer<uint16_t>* amplitude) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->requireForFrames(s);
    if (rc != SUCCESS) return rc;
    if (!s->hasRgb() || !impl_->rgbToDepthEnabled) return NOT_SUPPORTED;
    return s->withNextFrame([&](const Frame& f) {
        s->rgbToDepth(f, rgb, rgbPoints);
        copyInto(rgbToDepth, rgb);
        copyInto(depth, f.depth);
        copyInto(ir, f.ir);
        copyInto(amplitude, f.amplitude);
        if (points) s->points(f, *points);
    });
}

ReturnCode DeviceManager::GetDepthToRgbData(DataContainer<uint16_t>& depthToRgb, DataContainer<PointXYZRGBI>* rgbPoints,
                                            DataContainer<PointXYZ>* points, DataContainer<RGB888Pixel>* rgb,
                                            DataContainer<uint16_t>* depth, DataContainer<uint8_t>* ir,
                                            DataContainer<uint16_t>* amplitude) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->requireForFrames(s);
    if (rc != SUCCESS) return rc;
    if (!s->hasRgb() || !impl_->depthToRgbEnabled) return NOT_SUPPORTED;
    return s->withNextFrame([&](const Frame& f) {
        s->depthToRgb(f, depthToRgb, rgbPoints);
        copyInto(rgb, f.rgb);
        copyInto(depth, f.depth);
        copyInto(ir, f.ir);
        copyInto(amplitude, f.amplitude);
        if (points) s->points(f, *points);
    });
}

ReturnCode DeviceManager::ConvertDepthToRgbEnable(bool on) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->require(s);
    if (rc != SUCCESS) return rc;
    if (on && !s->hasRgb()) return NOT_SUPPORTED;
    impl_->depthToRgbEnabled = on;
    return SUCCESS;
}

ReturnCode DeviceManager::ConvertRgbToDepthEnable(bool on) {
    std::shared_ptr<Session> s;
    const ReturnCode rc = impl_->require(s);
    if (rc != SUCCESS) return rc;
    if (on && !s->hasRgb()) return NOT_SUPPORTED;
    impl_->rgbToDepthEnabled = on;
    return SUCCESS;
}
