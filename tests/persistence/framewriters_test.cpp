// The frame files other programs read, byte by byte: value CSV, point CSV,
// planar YUV and PNG. (The PLY file is the SDK's, read back by its own tests.)
#include "framewriters.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <cstring>
#include <limits>

namespace {

QByteArray readAll(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

class FrameWriters : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString file(const char* name) { return FrameFiles::path(dir.path(), QString::fromLatin1(name)); }
};

TEST_F(FrameWriters, ValueCsvIsRowsOfCommaBlankSeparatedNumbers) {
    const uint8_t ir[] = {1, 2, 3, 4, 5, 6};
    ASSERT_TRUE(writeValueCsv(file("IR.csv"), ir, 2, 3));
    EXPECT_EQ(readAll(file("IR.csv")), QByteArray("1, 2, 3\n4, 5, 6\n"));

    const uint8_t column[] = {7, 8, 255};
    ASSERT_TRUE(writeValueCsv(file("one.csv"), column, 3, 1));
    EXPECT_EQ(readAll(file("one.csv")), QByteArray("7\n8\n255\n"));

    const uint16_t depth[] = {0, 65535, 100, 4000};
    ASSERT_TRUE(writeValueCsv(file("Depth.csv"), depth, 2, 2));
    EXPECT_EQ(readAll(file("Depth.csv")), QByteArray("0, 65535\n100, 4000\n"));
}

TEST_F(FrameWriters, ValueCsvLeavesTheTailOfALongerOldFile) {
    {
        QFile old(file("IR.csv"));
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.write("9, 9, 9\n9, 9, 9\nold tail\n");
    }
    const uint8_t ir[] = {1, 2, 3, 4, 5, 6};
    ASSERT_TRUE(writeValueCsv(file("IR.csv"), ir, 2, 3));
    EXPECT_EQ(readAll(file("IR.csv")), QByteArray("1, 2, 3\n4, 5, 6\nold tail\n"));
}

TEST_F(FrameWriters, ValueCsvTextMatchesNumberByNumberWriting) {
    std::vector<uint16_t> depth(640 * 480);
    for (std::size_t i = 0; i < depth.size(); ++i) depth[i] = uint16_t(i * 7919u);
    QByteArray expected;
    for (int r = 0; r < 480; ++r) {
        for (int c = 0; c < 640; ++c) {
            expected += QByteArray::number(depth[std::size_t(r) * 640 + c], 10);
            expected += c + 1 < 640 ? ", " : "\n";
        }
    }
    EXPECT_EQ(valueCsv(depth.data(), 480, 640), expected);
}

TEST_F(FrameWriters, PointCsvUsesSixSignificantDigits) {
    const PointXYZ points[] = {{1.23456789f, -0.5f, 1000.0f}, {0.0f, 1e-7f, 123456789.0f}};
    ASSERT_TRUE(writePointCsv(file("PointCloud.csv"), points, 2));
    EXPECT_EQ(readAll(file("PointCloud.csv")), QByteArray("1.23457, -0.5, 1000\n0, 1e-07, 1.23457e+08\n"));
}

// The fast formatter against Qt's own 'g' text, over the values a camera
// gives and the awkward ones: rounding carries, exponents, zeros, non-finite.
TEST_F(FrameWriters, PointCsvTextMatchesQtFormattingOfEveryValue) {
    std::vector<PointXYZ> points;
    uint32_t seed = 12345;
    auto next = [&seed] { return seed = seed * 1664525u + 1013904223u; };
    for (int i = 0; i < 20000; ++i) {
        // Random bit patterns cover every exponent; camera-like millimetres too.
        const uint32_t bits = next();
        float any;
        std::memcpy(&any, &bits, 4);
        const float mm = float(int(next() % 2000000) - 1000000) / 97.0f;
        points.push_back({any, mm, float(next() % 15000) + 0.5f});
    }
    const float awkward[] = {0.0f,
                             -0.0f,
                             999999.5f,
                             9999995.0f,
                             0.0001f,
                             0.00001f,
                             1e-5f,
                             123456.5f,
                             1e6f,
                             -1e-38f,
                             3.4e38f,
                             std::numeric_limits<float>::infinity(),
                             -std::numeric_limits<float>::infinity(),
                             std::numeric_limits<float>::quiet_NaN(),
                             std::numeric_limits<float>::denorm_min()};
    for (float a : awkward) points.push_back({a, -a, a * 3.0f});

    QByteArray expected;
    for (const PointXYZ& p : points)
        expected += QStringLiteral("%1, %2, %3\n")
                        .arg(double(p.x), 0, 'g', -1, QLatin1Char(' '))
                        .arg(double(p.y), 0, 'g', -1, QLatin1Char(' '))
                        .arg(double(p.z), 0, 'g', -1, QLatin1Char(' '))
                        .toLocal8Bit();
    const QByteArray actual = pointCsv(points.data(), unsigned(points.size()));
    // Line by line, so a mismatch names its value.
    const QList<QByteArray> want = expected.split('\n');
    const QList<QByteArray> got = actual.split('\n');
    ASSERT_EQ(got.size(), want.size());
    for (int i = 0; i < want.size(); ++i) ASSERT_EQ(got[i], want[i]) << "point " << i;
}

TEST_F(FrameWriters, YuvIsPlanarWithTruncatedUnclampedValues) {
    // 4 x 2: white, black, red, green / blue, grey, yellow, white.
    QImage image(4, 2, QImage::Format_RGB32);
    const QRgb row0[] = {qRgb(255, 255, 255), qRgb(0, 0, 0), qRgb(255, 0, 0), qRgb(0, 255, 0)};
    const QRgb row1[] = {qRgb(0, 0, 255), qRgb(128, 128, 128), qRgb(255, 255, 0), qRgb(255, 255, 255)};
    for (int x = 0; x < 4; ++x) {
        image.setPixel(x, 0, row0[x]);
        image.setPixel(x, 1, row1[x]);
    }
    ASSERT_TRUE(saveYUYV(image, file("Rgb.yuv")));
    const QByteArray bytes = readAll(file("Rgb.yuv"));
    ASSERT_EQ(bytes.size(), 4 * 2 + 2 + 2);
    auto at = [&](int i) { return int(uint8_t(bytes[i])); };
    // Y: white 235, black 16, red 81 (81.535), green 144, blue 40, grey 125 (125.952), yellow 210.
    const int y[] = {235, 16, 81, 144, 40, 125, 210, 235};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(at(i), y[i]) << "Y " << i;
    // U and V from the top-left pixel of each 2 x 2 block: white, then red
    // (V 239.945 truncated to 239, not rounded).
    EXPECT_EQ(at(8), 128);
    EXPECT_EQ(at(9), 90);
    EXPECT_EQ(at(10), 128);
    EXPECT_EQ(at(11), 239);
}

TEST_F(FrameWriters, YuvOfAFullFrameIsOneAndAHalfBytesAPixel) {
    QImage image(640, 480, QImage::Format_RGB32);
    image.fill(qRgb(10, 20, 30));
    ASSERT_TRUE(saveYUYV(image, file("Rgb.yuv")));
    EXPECT_EQ(QFileInfo(file("Rgb.yuv")).size(), 460800);
}

TEST_F(FrameWriters, PngHoldsThePictureAsShown) {
    QImage image(16, 8, QImage::Format_RGB32);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 16; ++x) image.setPixel(x, y, qRgb(x * 16, y * 32, 7));
    ASSERT_TRUE(writePng(image, file("Depth.png")));
    const QImage back(file("Depth.png"));
    ASSERT_FALSE(back.isNull());
    EXPECT_EQ(back.convertToFormat(QImage::Format_RGB32), image);
}

TEST_F(FrameWriters, FailuresSayWhy) {
    const QString missing = FrameFiles::path(dir.path(), "no-such-folder/IR.csv");
    const uint8_t ir[] = {1};
    QString reason;
    EXPECT_FALSE(writeValueCsv(missing, ir, 1, 1, &reason));
    EXPECT_FALSE(reason.isEmpty());
    reason.clear();
    EXPECT_FALSE(
        writePng(QImage(4, 4, QImage::Format_RGB32), FrameFiles::path(dir.path(), "no-such-folder/IR.png"), &reason));
    EXPECT_FALSE(reason.isEmpty());
    EXPECT_FALSE(saveYUYV(QImage(4, 4, QImage::Format_RGB32), FrameFiles::path(dir.path(), "no-such-folder/Rgb.yuv")));
}

}  // namespace
