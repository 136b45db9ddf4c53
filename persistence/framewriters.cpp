#include "framewriters.h"

#include <QDataStream>
#include <QDateTime>
#include <QFile>
#include <QImageWriter>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

namespace FrameFiles {

QString timeStamp() { return QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMddhhmmsszzz")); }

}  // namespace FrameFiles

namespace {

// Appends `v` in decimal; the text is the same as QString::number(v, 10).
inline char* putUnsigned(char* out, unsigned v) {
    char digits[10];
    int n = 0;
    do {
        digits[n++] = char('0' + v % 10);
        v /= 10;
    } while (v != 0);
    while (n > 0) *out++ = digits[--n];
    return out;
}

template <typename T>
QByteArray csvText(const T* values, unsigned rows, unsigned cols) {
    // At most 5 digits and ", " a value: sized once, filled in place.
    QByteArray text;
    if (rows == 0 || cols == 0) return text;
    text.resize(int(std::size_t(rows) * cols * 7));
    char* out = text.data();
    std::size_t i = 0;
    for (unsigned r = 0; r < rows; ++r) {
        for (unsigned c = 0; c + 1 < cols; ++c) {
            out = putUnsigned(out, values[i++]);
            *out++ = ',';
            *out++ = ' ';
        }
        out = putUnsigned(out, values[i++]);
        *out++ = '\n';
    }
    text.resize(int(out - text.data()));
    return text;
}

// Opens for writing from the start without truncating, as the format has
// always been written: a longer old file keeps its tail.
bool writeInPlace(const QString& path, const QByteArray& text, QString* reason) {
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Text)) {
        if (reason) *reason = file.errorString();
        return false;
    }
    if (file.write(text) != text.size() || !file.flush()) {
        if (reason) *reason = file.errorString();
        return false;
    }
    return true;
}

// Appends `v` as QString::number(v, 'g', 6) writes it: six significant
// digits, no trailing zeros, an exponent of at least two digits. The C++
// general format with precision 6 is that text for finite values except at
// an exact tie, which it rounds to even where Qt rounds up; a value whose
// seventh significant digit is 5 may be such a tie and takes Qt's path.
// Qt writes a negative zero as "0".
inline char* appendShortest(char* out, char* end, double v) {
    if (v == 0.0) {
        *out = '0';
        return out + 1;
    }
    if (std::isfinite(v)) {
        char probe[32];
        std::to_chars(probe, probe + sizeof probe, v, std::chars_format::scientific, 6);
        const int seventh = (probe[0] == '-' ? 1 : 0) + 7;  // "d.dddddd": the digit after six
        if (probe[seventh] != '5') return std::to_chars(out, end, v, std::chars_format::general, 6).ptr;
    }
    const QByteArray text = QString::number(v, 'g', 6).toLatin1();
    std::memcpy(out, text.constData(), std::size_t(text.size()));
    return out + text.size();
}

inline uint8_t low8(double v) { return static_cast<uint8_t>(static_cast<int>(v) & 0xFF); }

}  // namespace

QByteArray valueCsv(const uint8_t* values, unsigned rows, unsigned cols) { return csvText(values, rows, cols); }

QByteArray valueCsv(const uint16_t* values, unsigned rows, unsigned cols) { return csvText(values, rows, cols); }

bool writeValueCsv(const QString& path, const uint8_t* values, unsigned rows, unsigned cols, QString* reason) {
    return writeInPlace(path, csvText(values, rows, cols), reason);
}

bool writeValueCsv(const QString& path, const uint16_t* values, unsigned rows, unsigned cols, QString* reason) {
    return writeInPlace(path, csvText(values, rows, cols), reason);
}

QByteArray pointCsv(const PointXYZ* points, unsigned count) {
    QByteArray text;
    text.reserve(int(count) * 24);
    char line[96];
    for (unsigned i = 0; i < count; ++i) {
        const PointXYZ& p = points[i];
        char* out = line;
        const float xyz[3] = {p.x, p.y, p.z};
        for (int k = 0; k < 3; ++k) {
            out = appendShortest(out, line + sizeof line, double(xyz[k]));
            if (k < 2) {
                *out++ = ',';
                *out++ = ' ';
            }
        }
        *out++ = '\n';
        text.append(line, int(out - line));
    }
    return text;
}

bool writePointCsv(const QString& path, const PointXYZ* points, unsigned count, QString* reason) {
    return writeInPlace(path, pointCsv(points, count), reason);
}

QByteArray yuvI420(const QImage& source) {
    const QImage image = (source.format() == QImage::Format_RGB32 || source.format() == QImage::Format_ARGB32)
                             ? source
                             : source.convertToFormat(QImage::Format_RGB32);
    const int w = image.width();
    const int h = image.height();
    const std::size_t ySize = std::size_t(w) * h;
    const std::size_t cSize = ySize / 4;
    QByteArray out(int(ySize + 2 * cSize), '\0');
    auto* yPlane = reinterpret_cast<uint8_t*>(out.data());
    uint8_t* uPlane = yPlane + ySize;
    uint8_t* vPlane = uPlane + cSize;
    const int half = w / 2;
    for (int y = 0; y < h; ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < w; ++x) {
            const double r = qRed(line[x]);
            const double g = qGreen(line[x]);
            const double b = qBlue(line[x]);
            yPlane[std::size_t(y) * w + x] = low8(0.504 * g + 0.257 * r + 0.098 * b + 16);
            if ((x & 1) == 0 && (y & 1) == 0) {
                const std::size_t c = std::size_t(y / 2) * half + std::size_t(x / 2);
                if (c < cSize) {
                    uPlane[c] = low8(0.439 * b - (0.148 * r + 0.291 * g) + 128);
                    vPlane[c] = low8(0.439 * r - 0.368 * g - 0.071 * b + 128);
                }
            }
        }
    }
    return out;
}

bool saveYUYV(const QImage& image, const QString& filename, QString* reason) {
    QFile first(filename);
    if (!first.open(QIODevice::WriteOnly)) {
        if (reason) *reason = first.errorString();
        return false;
    }
    // The file is opened a second time and written through that handle: the
    // way this writer has always worked, kept so its outcomes stay the same.
    QFile file(filename);
    if (!file.open(QIODevice::WriteOnly)) {
        std::fputs("Error: cannot open file for writing.\n", stderr);
        return true;
    }
    const QByteArray planes = yuvI420(image);
    QDataStream out(&file);
    if (out.writeRawData(planes.constData(), planes.size()) != planes.size() || !file.flush()) {
        if (reason) *reason = file.errorString();
        return false;
    }
    return true;
}

bool writePng(const QImage& image, const QString& path, QString* reason) {
    // What QImage::save(path) does (format from the suffix, default
    // quality), with the reason of a failure kept.
    QImageWriter writer(path);
    if (writer.write(image)) return true;
    if (reason) *reason = writer.errorString();
    return false;
}
