#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cstdlib>
#include <vector>

#include "JpegDecoder.h"

namespace {

// Red follows x, green follows y, blue constant: a transposed or
// channel-swapped decode shows up at once.
std::vector<uint8_t> encodeGradient(int w, int h) {
    std::vector<uint8_t> rgb(size_t(w) * h * 3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t* p = &rgb[(size_t(y) * w + x) * 3];
            p[0] = uint8_t(x * 255 / (w - 1));
            p[1] = uint8_t(y * 255 / (h - 1));
            p[2] = 60;
        }
    tjhandle tj = tjInitCompress();
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    tjCompress2(tj, rgb.data(), w, w * 3, h, TJPF_RGB, &jpeg, &size, TJSAMP_444, 95, 0);
    std::vector<uint8_t> out(jpeg, jpeg + size);
    tjFree(jpeg);
    tjDestroy(tj);
    return out;
}

}  // namespace

TEST(JpegDecoder, DecodesIntoContainerOfTheImageSize) {
    const auto jpeg = encodeGradient(96, 40);
    d3sdk::JpegDecoder dec;
    DataContainer<RGB888Pixel> img(480, 640);
    ASSERT_TRUE(dec.decode(jpeg.data(), jpeg.size(), img));
    EXPECT_EQ(img.rows(), 40u);
    EXPECT_EQ(img.cols(), 96u);
    for (int y : {0, 17, 39})
        for (int x : {0, 50, 95}) {
            const RGB888Pixel p = img.data()[y * 96 + x];
            EXPECT_NEAR(p.r, x * 255 / 95, 4) << x << "," << y;
            EXPECT_NEAR(p.g, y * 255 / 39, 4) << x << "," << y;
            EXPECT_NEAR(p.b, 60, 4);
        }
}

// Steady state: the same size again reuses the storage, a different size
// reshapes the container.
TEST(JpegDecoder, ReusesStorageAndFollowsSizeChanges) {
    const auto big = encodeGradient(64, 48);
    const auto small = encodeGradient(16, 8);
    d3sdk::JpegDecoder dec;
    DataContainer<RGB888Pixel> img;
    ASSERT_TRUE(dec.decode(big.data(), big.size(), img));
    const RGB888Pixel* storage = img.data();
    ASSERT_TRUE(dec.decode(big.data(), big.size(), img));
    EXPECT_EQ(img.data(), storage);
    ASSERT_TRUE(dec.decode(small.data(), small.size(), img));
    EXPECT_EQ(img.rows(), 8u);
    EXPECT_EQ(img.cols(), 16u);
    EXPECT_EQ(img.data(), storage);
}

TEST(JpegDecoder, RejectsCorruptTruncatedAndOversizedImages) {
    d3sdk::JpegDecoder dec;
    DataContainer<RGB888Pixel> img;
    std::vector<uint8_t> junk(500);
    for (size_t i = 0; i < junk.size(); ++i) junk[i] = uint8_t(std::rand());
    EXPECT_FALSE(dec.decode(junk.data(), junk.size(), img));
    EXPECT_FALSE(dec.decode(nullptr, 0, img));
    const auto jpeg = encodeGradient(64, 48);
    EXPECT_FALSE(dec.decode(jpeg.data(), jpeg.size() / 2, img));
    EXPECT_FALSE(dec.decode(jpeg.data(), jpeg.size(), img, 64 * 47));
    // The decoder still works after failures.
    EXPECT_TRUE(dec.decode(jpeg.data(), jpeg.size(), img));
}
