#include "Recording.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "CameraSettings.h"

namespace d3sim {

namespace fs = std::filesystem;

bool parseValueCsv(const std::string& text, uint32_t maxValue, int& rows, int& cols, std::vector<uint16_t>& out) {
    out.clear();
    rows = 0;
    cols = 0;
    const size_t n = text.size();
    auto digit = [&text](size_t p) { return text[p] >= '0' && text[p] <= '9'; };
    for (size_t pos = 0; pos < n;) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = n;
        size_t lineEnd = end;
        if (lineEnd > pos && text[lineEnd - 1] == '\r') --lineEnd;
        if (lineEnd > pos) {
            int count = 0;
            for (size_t p = pos;;) {
                while (p < lineEnd && text[p] == ' ') ++p;
                if (p >= lineEnd || !digit(p)) return false;
                uint32_t v = 0;
                for (; p < lineEnd && digit(p); ++p) {
                    v = v * 10 + uint32_t(text[p] - '0');
                    if (v > maxValue) return false;
                }
                out.push_back(uint16_t(v));
                ++count;
                while (p < lineEnd && text[p] == ' ') ++p;
                if (p == lineEnd) break;
                if (text[p] != ',') return false;
                ++p;
            }
            if (rows == 0)
                cols = count;
            else if (count != cols)
                return false;
            ++rows;
        }
        pos = end + 1;
    }
    return rows > 0;
}

namespace {
uint8_t clampByte(double v) { return uint8_t(std::lround(std::clamp(v, 0.0, 255.0))); }
}  // namespace

void i420ToRgb(const uint8_t* yuv, int width, int height, uint8_t* rgb) {
    const uint8_t* yPlane = yuv;
    const uint8_t* uPlane = yuv + size_t(width) * size_t(height);
    const uint8_t* vPlane = uPlane + size_t(width) * size_t(height) / 4;
    const int chromaWidth = width / 2;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const size_t c = size_t(y / 2) * size_t(chromaWidth) + size_t(x / 2);
            const double luma = 1.164383 * (double(yPlane[size_t(y) * size_t(width) + size_t(x)]) - 16.0);
            const double u = double(uPlane[c]) - 128.0, v = double(vPlane[c]) - 128.0;
            uint8_t* px = rgb + (size_t(y) * size_t(width) + size_t(x)) * 3;
            px[0] = clampByte(luma + 1.596027 * v);
            px[1] = clampByte(luma - 0.391762 * u - 0.812968 * v);
            px[2] = clampByte(luma + 2.017232 * u);
        }
    }
}

int64_t parseTimeStamp(const std::string& name) {
    if (name.size() != 17 || !std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return -1;
    auto num = [&name](size_t pos, size_t len) { return std::stoi(name.substr(pos, len)); };
    const int year = num(0, 4), month = num(4, 2), day = num(6, 2);
    const int hour = num(8, 2), minute = num(10, 2), second = num(12, 2), ms = num(14, 3);
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) return -1;
    // Days from the civil date (proleptic Gregorian), so gaps across midnight
    // and month ends come out right.
    const int y = year - (month <= 2 ? 1 : 0);
    const int era = (y >= 0 ? y : y - 399) / 400;
    const int yoe = y - era * 400;
    const int doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    const int64_t days = int64_t(era) * 146097 + doe - 719468;
    return ((days * 24 + hour) * 60 + minute) * 60000 + int64_t(second) * 1000 + ms;
}

int recordedFrameRate(const std::vector<int64_t>& timesMs) {
    std::vector<int64_t> gaps;
    for (size_t i = 1; i < timesMs.size(); ++i)
        if (timesMs[i - 1] >= 0 && timesMs[i] > timesMs[i - 1]) gaps.push_back(timesMs[i] - timesMs[i - 1]);
    if (gaps.empty()) return 0;
    std::nth_element(gaps.begin(), gaps.begin() + std::ptrdiff_t(gaps.size() / 2), gaps.end());
    const double fps = 1000.0 / double(gaps[gaps.size() / 2]);
    return std::clamp(int(std::lround(fps)), 1, 25);
}

char modelForColourSize(int width, int height) {
    if (width == 1920 && height == 1080) return '3';
    if (width == 1600 && height == 1200) return '4';
    return '\0';
}

namespace {

bool readFile(const fs::path& path, std::string& out) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream s;
    s << in.rdbuf();
    out = s.str();
    return bool(in) || in.eof();
}

// Width and height of a planar 4:2:0 picture of `bytes` bytes, among the
// colour sizes cameras deliver.
bool colourSizeOf(uintmax_t bytes, int& width, int& height) {
    for (auto [w, h] : {std::pair{1920, 1080}, std::pair{1600, 1200}}) {
        if (bytes == uintmax_t(w) * uintmax_t(h) * 3 / 2) {
            width = w;
            height = h;
            return true;
        }
    }
    return false;
}

}  // namespace

bool Recording::loadFrame(const std::string& dir, Frame& frame, std::string& error) {
    frame.folder = dir;
    frame.timeMs = parseTimeStamp(fs::path(dir).filename().string());
    std::string text;
    int rows = 0, cols = 0;
    const fs::path depthPath = fs::path(dir) / "Depth.csv";
    if (!readFile(depthPath, text) || !parseValueCsv(text, 65535, rows, cols, frame.depth)) {
        error = depthPath.string() + ": not a table of depth values";
        return false;
    }
    if (rows != kTofHeight || cols != kTofWidth) {
        error = depthPath.string() + ": " + std::to_string(cols) + "x" + std::to_string(rows) +
                " depth; only plain 640x480 captures (no registered view) can be replayed";
        return false;
    }
    const fs::path irPath = fs::path(dir) / "IR.csv";
    if (fs::exists(irPath)) {
        std::vector<uint16_t> values;
        if (!readFile(irPath, text) || !parseValueCsv(text, 255, rows, cols, values) || rows != kTofHeight ||
            cols != kTofWidth) {
            error = irPath.string() + ": not a 640x480 table of IR values";
            return false;
        }
        frame.ir.assign(values.begin(), values.end());
    }
    const fs::path yuvPath = fs::path(dir) / "Rgb.yuv";
    if (fs::exists(yuvPath)) frame.yuvPath = yuvPath.string();
    return true;
}

bool Recording::load(const std::string& folder, std::string& error) {
    folder_ = folder;
    frames_.clear();
    std::error_code ec;
    if (!fs::is_directory(folder, ec)) {
        error = folder + ": not a folder";
        return false;
    }
    std::vector<std::string> dirs;
    if (fs::exists(fs::path(folder) / "Depth.csv")) {
        dirs.push_back(folder);
    } else {
        for (const fs::directory_entry& e : fs::directory_iterator(folder, ec))
            if (e.is_directory() && fs::exists(e.path() / "Depth.csv")) dirs.push_back(e.path().string());
        // Time-stamp names sort in time order.
        std::sort(dirs.begin(), dirs.end());
    }
    if (dirs.empty()) {
        error = folder + ": no saved frame (a folder with Depth.csv) found";
        return false;
    }
    frames_.resize(dirs.size());
    for (size_t i = 0; i < dirs.size(); ++i)
        if (!loadFrame(dirs[i], frames_[i], error)) return false;

    rgbWidth_ = rgbHeight_ = 0;
    model_ = '1';
    if (!frames_.front().yuvPath.empty()) {
        const uintmax_t bytes = fs::file_size(frames_.front().yuvPath, ec);
        if (ec || !colourSizeOf(bytes, rgbWidth_, rgbHeight_)) {
            error = frames_.front().yuvPath + ": not the size of a 1920x1080 or 1600x1200 colour picture";
            return false;
        }
        model_ = modelForColourSize(rgbWidth_, rgbHeight_);
    }
    for (const Frame& f : frames_) {
        const bool has = !f.yuvPath.empty();
        if (has != colour() || (has && fs::file_size(f.yuvPath, ec) != fs::file_size(frames_.front().yuvPath, ec))) {
            error = f.folder + ": its colour picture does not match the first frame's";
            return false;
        }
    }
    std::vector<int64_t> times;
    for (const Frame& f : frames_) times.push_back(f.timeMs);
    frameRate_ = recordedFrameRate(times);
    return true;
}

bool Recording::frame(uint64_t i, FrameSet& out, std::vector<uint8_t>& yuvScratch) const {
    const Frame& f = frames_[size_t(i % frames_.size())];
    out.depth.assign(f.depth.begin(), f.depth.end());
    if (f.ir.empty())
        out.ir.assign(size_t(kTofWidth) * kTofHeight, 0);
    else
        out.ir.assign(f.ir.begin(), f.ir.end());
    out.amplitude.assign(out.ir.begin(), out.ir.end());
    out.rgbWidth = rgbWidth_;
    out.rgbHeight = rgbHeight_;
    if (!colour()) {
        out.rgb.clear();
        return true;
    }
    const size_t pixels = size_t(rgbWidth_) * size_t(rgbHeight_);
    out.rgb.resize(pixels * 3);
    yuvScratch.resize(pixels * 3 / 2);
    std::ifstream in(f.yuvPath, std::ios::binary);
    if (!in.read(reinterpret_cast<char*>(yuvScratch.data()), std::streamsize(yuvScratch.size()))) {
        std::fill(out.rgb.begin(), out.rgb.end(), uint8_t(0));
        return false;
    }
    i420ToRgb(yuvScratch.data(), rgbWidth_, rgbHeight_, out.rgb.data());
    return true;
}

}  // namespace d3sim
