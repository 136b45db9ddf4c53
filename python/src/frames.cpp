// Frame calls. Each call gives the SDK fresh containers to fill and hands
// them to NumPy as they are: the arrays view the containers' storage and own
// it, so the only copy is the SDK's own from its receive buffer.
#include <pybind11/numpy.h>

#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

#include "d3module.h"

namespace d3py {

namespace {

struct Frame {
    py::object depth = py::none(), ir = py::none(), amplitude = py::none(), points = py::none();
    py::object rgb = py::none(), rgbPoints = py::none(), depthToRgb = py::none();
    py::object validPoints = py::none(), validRgbPoints = py::none();
};

template <typename T>
using Buffer = std::unique_ptr<DataContainer<T>>;

template <typename T>
Buffer<T> wanted(bool on) {
    return on ? std::make_unique<DataContainer<T>>() : nullptr;
}

// The array's base is a capsule that deletes the container with the array.
template <typename Element, typename T>
py::object adopt(Buffer<T> buffer, std::vector<py::ssize_t> shape) {
    if (!buffer) return py::none();
    py::capsule owner(buffer.get(), [](void* p) { delete static_cast<DataContainer<T>*>(p); });
    DataContainer<T>* raw = buffer.release();
    return py::array_t<Element>(shape, reinterpret_cast<Element*>(raw->data()), owner);
}

template <typename T>
py::object image(Buffer<T> b) {
    if (!b) return py::none();
    const std::vector<py::ssize_t> shape{py::ssize_t(b->rows()), py::ssize_t(b->cols())};
    return adopt<T>(std::move(b), shape);
}

py::object colour(Buffer<RGB888Pixel> b) {
    if (!b) return py::none();
    static_assert(sizeof(RGB888Pixel) == 3, "RGB888Pixel must be packed for an HxWx3 view");
    const std::vector<py::ssize_t> shape{py::ssize_t(b->rows()), py::ssize_t(b->cols()), 3};
    return adopt<uint8_t>(std::move(b), shape);
}

// How many points have a measurement.
template <typename T>
py::object count(const DataContainer<T>* b) {
    if (!b) return py::none();
    return py::int_(b->getNumberSize());
}

// Points keep the image's layout (row-major, one per depth pixel, zero where
// nothing was measured), so reshape(h, w, 3) gives an organised cloud.
py::object points(Buffer<PointXYZ> b) {
    if (!b) return py::none();
    static_assert(sizeof(PointXYZ) == 3 * sizeof(float), "PointXYZ must be three floats for an Nx3 view");
    const std::vector<py::ssize_t> shape{py::ssize_t(b->rows()) * b->cols(), 3};
    return adopt<float>(std::move(b), shape);
}

py::object rgbPoints(Buffer<PointXYZRGBI> b) {
    if (!b) return py::none();
    const std::vector<py::ssize_t> shape{py::ssize_t(b->rows()) * b->cols()};
    return adopt<PointXYZRGBI>(std::move(b), shape);
}

std::string frameRepr(const Frame& f) {
    std::ostringstream s;
    s << "Frame(";
    const char* sep = "";
    const std::pair<const char*, const py::object*> fields[] = {{"depth", &f.depth},
                                                                {"ir", &f.ir},
                                                                {"amplitude", &f.amplitude},
                                                                {"points", &f.points},
                                                                {"rgb", &f.rgb},
                                                                {"rgb_points", &f.rgbPoints},
                                                                {"depth_to_rgb", &f.depthToRgb}};
    for (const auto& [name, value] : fields) {
        if (value->is_none()) continue;
        s << sep << name << "=" << py::str(value->attr("shape")).cast<std::string>();
        sep = ", ";
    }
    s << ")";
    return s.str();
}

Frame tofData(bool wantDepth, bool wantPoints, bool wantIr, bool wantAmplitude) {
    auto depth = wanted<uint16_t>(wantDepth);
    auto pts = wanted<PointXYZ>(wantPoints);
    auto ir = wanted<uint8_t>(wantIr);
    auto amplitude = wanted<uint16_t>(wantAmplitude);
    call([&] { return sdk().GetTofData(depth.get(), pts.get(), ir.get(), amplitude.get()); });
    Frame f;
    f.validPoints = count(pts.get());
    f.depth = image(std::move(depth));
    f.points = points(std::move(pts));
    f.ir = image(std::move(ir));
    f.amplitude = image(std::move(amplitude));
    return f;
}

Frame rgbTofData(bool wantRgb, bool wantDepth, bool wantPoints, bool wantIr, bool wantAmplitude) {
    auto rgb = wanted<RGB888Pixel>(wantRgb);
    auto depth = wanted<uint16_t>(wantDepth);
    auto pts = wanted<PointXYZ>(wantPoints);
    auto ir = wanted<uint8_t>(wantIr);
    auto amplitude = wanted<uint16_t>(wantAmplitude);
    call([&] { return sdk().GetRgbTofData(rgb.get(), depth.get(), pts.get(), ir.get(), amplitude.get()); });
    Frame f;
    f.validPoints = count(pts.get());
    f.rgb = colour(std::move(rgb));
    f.depth = image(std::move(depth));
    f.points = points(std::move(pts));
    f.ir = image(std::move(ir));
    f.amplitude = image(std::move(amplitude));
    return f;
}

Frame rgbToDepthData(bool wantRgbPoints, bool wantPoints, bool wantDepth, bool wantIr, bool wantAmplitude) {
    auto rgb = wanted<RGB888Pixel>(true);
    auto rgbPts = wanted<PointXYZRGBI>(wantRgbPoints);
    auto pts = wanted<PointXYZ>(wantPoints);
    auto depth = wanted<uint16_t>(wantDepth);
    auto ir = wanted<uint8_t>(wantIr);
    auto amplitude = wanted<uint16_t>(wantAmplitude);
    // The SDK's second colour output repeats the first; it is not asked for.
    call([&] {
        return sdk().GetRgbToDepthData(*rgb, rgbPts.get(), pts.get(), depth.get(), nullptr, ir.get(), amplitude.get());
    });
    Frame f;
    f.validPoints = count(pts.get());
    f.validRgbPoints = count(rgbPts.get());
    f.rgb = colour(std::move(rgb));
    f.rgbPoints = rgbPoints(std::move(rgbPts));
    f.points = points(std::move(pts));
    f.depth = image(std::move(depth));
    f.ir = image(std::move(ir));
    f.amplitude = image(std::move(amplitude));
    return f;
}

Frame depthToRgbData(bool wantRgbPoints, bool wantPoints, bool wantRgb, bool wantDepth, bool wantIr,
                     bool wantAmplitude) {
    auto depthToRgb = wanted<uint16_t>(true);
    auto rgbPts = wanted<PointXYZRGBI>(wantRgbPoints);
    auto pts = wanted<PointXYZ>(wantPoints);
    auto rgb = wanted<RGB888Pixel>(wantRgb);
    auto depth = wanted<uint16_t>(wantDepth);
    auto ir = wanted<uint8_t>(wantIr);
    auto amplitude = wanted<uint16_t>(wantAmplitude);
    call([&] {
        return sdk().GetDepthToRgbData(*depthToRgb, rgbPts.get(), pts.get(), rgb.get(), depth.get(), ir.get(),
                                       amplitude.get());
    });
    Frame f;
    f.validPoints = count(pts.get());
    f.validRgbPoints = count(rgbPts.get());
    f.depthToRgb = image(std::move(depthToRgb));
    f.rgbPoints = rgbPoints(std::move(rgbPts));
    f.points = points(std::move(pts));
    f.rgb = colour(std::move(rgb));
    f.depth = image(std::move(depth));
    f.ir = image(std::move(ir));
    f.amplitude = image(std::move(amplitude));
    return f;
}

template <typename Point>
void savePly(const std::string& path, const Point* first, size_t n, bool binary) {
    DataContainer<Point> c(1, unsigned(n));
    if (n) std::memcpy(c.data(), first, n * sizeof(Point));
    bool ok;
    {
        py::gil_scoped_release nogil;
        ok = DeviceManager::SaveAsPLYFile(path, c, binary);
    }
    if (!ok) check(FILE_ERROR);
}

const char* const kFrameDoc =
    "One frame's buffers as NumPy arrays; what was not asked for is None.\n\n"
    "depth: HxW uint16, millimetres, 0 = no measurement. ir: HxW uint8. amplitude: HxW uint16.\n"
    "rgb: HxWx3 uint8 (R, G, B). points: (H*W)x3 float32 millimetres in the ToF camera's frame, one\n"
    "row per depth pixel, (0, 0, 0) where nothing was measured (reshape(H, W, 3) for an organised\n"
    "cloud); valid_points counts the measured ones. rgb_points: H*W records of d3.RGB_POINT_DTYPE\n"
    "(x, y, z float32, r, g, b, i uint8), valid_rgb_points counts them. depth_to_rgb: depth seen from\n"
    "the colour camera, at the colour resolution.\n\n"
    "Lifetime: every frame call fills new buffers, and each array owns its buffer (array.base holds\n"
    "it); the SDK never writes to it again. Arrays stay valid after later frame calls, after\n"
    "Device.close() and after the Frame is gone, for as long as Python keeps them.";

}  // namespace

void bindFrames(py::module_& m, py::class_<Device>& device) {
    PYBIND11_NUMPY_DTYPE(PointXYZRGBI, x, y, z, r, g, b, i);
    m.attr("RGB_POINT_DTYPE") = py::dtype::of<PointXYZRGBI>();

    py::class_<Frame>(m, "Frame", kFrameDoc)
        .def_readonly("depth", &Frame::depth)
        .def_readonly("ir", &Frame::ir)
        .def_readonly("amplitude", &Frame::amplitude)
        .def_readonly("points", &Frame::points)
        .def_readonly("rgb", &Frame::rgb)
        .def_readonly("rgb_points", &Frame::rgbPoints)
        .def_readonly("depth_to_rgb", &Frame::depthToRgb)
        .def_readonly("valid_points", &Frame::validPoints)
        .def_readonly("valid_rgb_points", &Frame::validRgbPoints)
        .def("__repr__", &frameRepr);

    device.def(
        "get_tof_data",
        [](Device&, bool depth, bool pts, bool ir, bool amplitude) { return tofData(depth, pts, ir, amplitude); },
        py::arg("depth") = true, py::arg("points") = false, py::arg("ir") = true, py::arg("amplitude") = false,
        "Wait for the next frame (GetTofData) and return a d3.Frame with the buffers asked for.");
    device.def(
        "get_rgb_tof_data",
        [](Device&, bool rgb, bool depth, bool pts, bool ir, bool amplitude) {
            return rgbTofData(rgb, depth, pts, ir, amplitude);
        },
        py::arg("rgb") = true, py::arg("depth") = true, py::arg("points") = false, py::arg("ir") = true,
        py::arg("amplitude") = false,
        "As get_tof_data, with the colour image (GetRgbTofData); colour models only (else NOT_SUPPORTED).");
    device.def(
        "get_rgb_to_depth_data",
        [](Device&, bool rgbPts, bool pts, bool depth, bool ir, bool amplitude) {
            return rgbToDepthData(rgbPts, pts, depth, ir, amplitude);
        },
        py::arg("rgb_points") = true, py::arg("points") = false, py::arg("depth") = true, py::arg("ir") = false,
        py::arg("amplitude") = false,
        "Colour sampled at every depth pixel (GetRgbToDepthData): frame.rgb is HxWx3 at the depth\n"
        "resolution. Needs convert_rgb_to_depth_enable(True).");
    device.def(
        "get_depth_to_rgb_data",
        [](Device&, bool rgbPts, bool pts, bool rgb, bool depth, bool ir, bool amplitude) {
            return depthToRgbData(rgbPts, pts, rgb, depth, ir, amplitude);
        },
        py::arg("rgb_points") = false, py::arg("points") = false, py::arg("rgb") = true, py::arg("depth") = false,
        py::arg("ir") = false, py::arg("amplitude") = false,
        "Depth projected into the colour camera (GetDepthToRgbData): frame.depth_to_rgb is uint16 at the\n"
        "colour resolution. Needs convert_depth_to_rgb_enable(True).");

    m.def(
        "save_ply",
        [](const std::string& path, const py::object& pts, bool binary) {
            // Coloured points only as records of their own type; anything
            // else is taken as numbers.
            if (py::isinstance<py::array>(pts) && pts.cast<py::array>().dtype().is(py::dtype::of<PointXYZRGBI>())) {
                auto rgb = py::array_t<PointXYZRGBI, py::array::c_style>::ensure(pts);
                if (rgb.ndim() != 1) throw py::value_error("coloured points must be a 1-D array of RGB_POINT_DTYPE");
                savePly(path, rgb.data(), size_t(rgb.size()), binary);
                return;
            }
            auto xyz = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(pts);
            if (!xyz || xyz.ndim() != 2 || xyz.shape(1) != 3) throw py::value_error("points must be an Nx3 array");
            static_assert(sizeof(PointXYZ) == 3 * sizeof(float));
            savePly(path, reinterpret_cast<const PointXYZ*>(xyz.data()), size_t(xyz.shape(0)), binary);
        },
        py::arg("path"), py::arg("points"), py::arg("binary") = true,
        "Write points (Nx3 float32 or anything that converts to it, or records of RGB_POINT_DTYPE) as\n"
        "a PLY file (SaveAsPLYFile); only points with z > 0 are written. binary=False writes ASCII.\n"
        "Raises d3.Error (FILE_ERROR) when the file cannot be written.");
}

}  // namespace d3py
