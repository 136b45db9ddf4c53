// Conversions frame calls ask for: points, and registration between the ToF
// and the colour camera. They run on the caller's thread under the session's
// read lock, into buffers sized once.
#include "Session.h"

namespace d3sdk {

void Session::points(const Frame& f, DataContainer<PointXYZ>& out) {
    projector_.configure(cal_.tof, f.depth.cols(), f.depth.rows());
    out.resize(f.depth.rows(), f.depth.cols());
    out.setNumberSize(projector_.compute(f.depth.data(), out.data()));
}

bool Session::configureRegistration(const Frame& f) {
    if (f.rgb.cols() == 0 || f.rgb.rows() == 0) return false;
    registration_.configure(cal_.tof, f.depth.cols(), f.depth.rows(), cal_.rgb, f.rgb.cols(), f.rgb.rows(),
                            cal_.extrinsics);
    zbuffer_.resize(size_t(f.rgb.cols()) * f.rgb.rows());
    return true;
}

void Session::depthToRgb(const Frame& f, DataContainer<uint16_t>& out, DataContainer<PointXYZRGBI>* rgbPoints) {
    if (!configureRegistration(f)) return;
    out.resize(f.rgb.rows(), f.rgb.cols());
    registration_.depthToRgb(f.depth.data(), out.data(), rgbPoints != nullptr);
    if (rgbPoints) {
        rgbPoints->resize(f.rgb.rows(), f.rgb.cols());
        rgbPoints->setNumberSize(
            registration_.colouredRgbPoints(out.data(), f.rgb.data(), f.ir.data(), rgbPoints->data()));
    }
}

void Session::rgbToDepth(const Frame& f, DataContainer<RGB888Pixel>& out, DataContainer<PointXYZRGBI>* rgbPoints) {
    if (!configureRegistration(f)) return;
    // The occlusion test needs to know what the colour camera sees nearest.
    registration_.depthToRgb(f.depth.data(), zbuffer_.data(), false);
    out.resize(f.depth.rows(), f.depth.cols());
    registration_.rgbToDepth(f.depth.data(), zbuffer_.data(), f.rgb.data(), out.data());
    if (rgbPoints) {
        rgbPoints->resize(f.depth.rows(), f.depth.cols());
        rgbPoints->setNumberSize(
            registration_.colouredTofPoints(f.depth.data(), out.data(), f.ir.data(), rgbPoints->data()));
    }
}

}  // namespace d3sdk
