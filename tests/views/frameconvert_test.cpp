#include <gtest/gtest.h>

#include <QImage>
#include <vector>

#include "colormap.h"
#include "frameconvert.h"

namespace {

QImage blank(int w, int h) {
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(0x12345678u);
    return image;
}

// The table must give the formula's pixel for every possible depth, for
// limits on and off whole millimetres, and after the limits change.
TEST(DepthColorTable, MatchesFormulaOverWholeRange) {
    const std::pair<double, double> limits[] = {{500, 4500},  {0, 65535}, {123.4, 5678.9}, {800, 800},
                                                {3000, 1000}, {-50, 20},  {60000, 70000}};
    DepthColorTable table;
    for (const auto& [min, max] : limits) {
        table.update(min, max);
        for (int d = 0; d <= 65535; ++d) {
            const QRgb expected = (d >= min && d <= max) ? mapDistanceToColor(d, min, max) : 0u;
            ASSERT_EQ(table[uint16_t(d)], expected) << "depth " << d << " limits " << min << ", " << max;
        }
    }
}

// Every uint16 depth appears once in a 256 x 256 frame, so the converter is
// checked against the formula and the range rule over the whole range.
TEST(ConvertDepth, WholeRangeMatchesFormulaAndRangeRule) {
    std::vector<uint16_t> depth(65536);
    for (int i = 0; i < 65536; ++i) depth[i] = uint16_t(i);
    QImage image = blank(256, 256);
    ValueMatrix<double> values(256, 256);
    DepthColorTable table;
    const uchar* before = image.constBits();
    for (auto [min, max] : {std::pair<double, double>{300, 4500}, {0, 65535}, {1000.5, 1000.5}}) {
        ASSERT_TRUE(convertDepth(depth.data(), depth.size(), min, max, table, image, values));
        EXPECT_EQ(image.constBits(), before) << "the image must be written in place";
        for (int d = 0; d < 65536; ++d) {
            const int y = d / 256, x = d % 256;
            const bool inRange = d >= min && d <= max;
            ASSERT_EQ(QRgb(image.pixel(x, y)) & 0xFFFFFFu, (inRange ? mapDistanceToColor(d, min, max) : 0u) & 0xFFFFFFu)
                << d;
            ASSERT_EQ(reinterpret_cast<const QRgb*>(image.constScanLine(y))[x],
                      inRange ? mapDistanceToColor(d, min, max) : 0u);
            ASSERT_EQ(values[y][x], inRange ? double(d) : 0.0) << d;
        }
    }
}

TEST(ConvertDepth, EdgesShortFramesAndSizeMismatch) {
    QImage image = blank(4, 2);
    ValueMatrix<double> values(2, 4);
    DepthColorTable table;
    const uint16_t depth[] = {499, 500, 4500, 4501, 0};  // the last row is short
    ASSERT_TRUE(convertDepth(depth, 5, 500, 4500, table, image, values));
    const QRgb* row0 = reinterpret_cast<const QRgb*>(image.constScanLine(0));
    EXPECT_EQ(row0[0], 0u);
    EXPECT_EQ(row0[1], mapDistanceToColor(500, 500, 4500));
    EXPECT_EQ(row0[2], mapDistanceToColor(4500, 500, 4500));
    EXPECT_EQ(row0[3], 0u);
    EXPECT_EQ(values[0][0], 0.0);
    EXPECT_EQ(values[0][1], 500.0);
    EXPECT_EQ(values[0][2], 4500.0);
    EXPECT_EQ(values[0][3], 0.0);
    for (int x = 0; x < 4; ++x) {
        EXPECT_EQ(reinterpret_cast<const QRgb*>(image.constScanLine(1))[x], 0u) << "missing depth counts as 0";
        EXPECT_EQ(values[1][x], 0.0);
    }

    // With the minimum at 0 a missing measurement is in range and drawn red.
    ASSERT_TRUE(convertDepth(depth, 5, 0, 4500, table, image, values));
    EXPECT_EQ(reinterpret_cast<const QRgb*>(image.constScanLine(1))[3], 0xFFFF0000u);

    QImage wrong = blank(5, 2);
    EXPECT_FALSE(convertDepth(depth, 5, 500, 4500, table, wrong, values));
    EXPECT_EQ(wrong.pixel(0, 0), 0xFF345678u) << "a mismatched image is left alone";
}

TEST(ConvertIrAndRgb, PixelsAndValuesInPlace) {
    QImage ir = blank(3, 2);
    ValueMatrix<double> irValues(2, 3);
    const uint8_t irBytes[] = {0, 1, 127, 128, 255};
    const uchar* irBits = ir.constBits();
    ASSERT_TRUE(convertIr(irBytes, 5, ir, irValues));
    EXPECT_EQ(ir.constBits(), irBits);
    EXPECT_EQ(ir.pixel(0, 0), 0xFF000000u);
    EXPECT_EQ(ir.pixel(2, 0), 0xFF7F7F7Fu);
    EXPECT_EQ(ir.pixel(1, 1), 0xFFFFFFFFu);
    EXPECT_EQ(ir.pixel(2, 1), 0xFF000000u);
    EXPECT_EQ(irValues[1][0], 128.0);
    EXPECT_EQ(irValues[1][2], 0.0);

    QImage rgb = blank(2, 2);
    ValueMatrix<QRgb> rgbValues(2, 2);
    const RGB888Pixel pixels[] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {1, 2, 3}};
    const uchar* rgbBits = rgb.constBits();
    ASSERT_TRUE(convertRgb(pixels, 3, rgb, rgbValues));
    EXPECT_EQ(rgb.constBits(), rgbBits);
    EXPECT_EQ(rgb.pixel(0, 0), 0xFFFF0000u);
    EXPECT_EQ(rgb.pixel(1, 0), 0xFF00FF00u);
    EXPECT_EQ(rgb.pixel(0, 1), 0xFF0000FFu);
    EXPECT_EQ(rgb.pixel(1, 1), 0xFF000000u) << "short frame padded with black";
    EXPECT_EQ(rgbValues[0][1], 0xFF00FF00u);
    ASSERT_TRUE(convertRgb(pixels, 4, rgb, rgbValues));
    EXPECT_EQ(rgbValues[1][1], 0xFF010203u);
    EXPECT_EQ(rgb.pixel(1, 1), 0xFF010203u);

    ValueMatrix<QRgb> small(1, 2);
    EXPECT_FALSE(convertRgb(pixels, 4, rgb, small));
}

// Rows wide enough for the vectorised path, with widths that leave a scalar
// tail and a frame that ends inside a row.
TEST(ConvertRgb, WideRowsMatchByteOrder) {
    for (int w : {6, 7, 37, 1920}) {
        const int h = 3;
        std::vector<RGB888Pixel> src(std::size_t(w) * h);
        for (std::size_t i = 0; i < src.size(); ++i)
            src[i] = {uint8_t(i * 7), uint8_t(i * 13 + 1), uint8_t(i * 29 + 2)};
        QImage image = blank(w, h);
        ValueMatrix<QRgb> values(h, w);
        const std::size_t count = src.size() - std::size_t(w) / 2 - 1;
        ASSERT_TRUE(convertRgb(src.data(), count, image, values));
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                const std::size_t i = std::size_t(y) * w + x;
                const QRgb expected = i < count ? qRgb(src[i].r, src[i].g, src[i].b) : qRgb(0, 0, 0);
                ASSERT_EQ(reinterpret_cast<const QRgb*>(image.constScanLine(y))[x], expected)
                    << w << " " << x << "," << y;
                ASSERT_EQ(values[y][x], expected) << w << " " << x << "," << y;
            }
        }
    }
}

}  // namespace
