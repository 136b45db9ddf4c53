// From wire payload to the frame a reader gets: unpacking and the exchange.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "FrameExchange.h"
#include "FrameUnpacker.h"
#include "d3_protocol/Frame.h"
#include "waituntil.h"

using namespace std::chrono_literals;

namespace {

std::vector<uint8_t> framePayload(uint32_t id, const std::vector<uint8_t>& jpeg = {}, uint16_t rgbW = 0,
                                  uint16_t rgbH = 0) {
    d3proto::FrameHeader h;
    h.frameId = id;
    h.tofWidth = 8;
    h.tofHeight = 4;
    h.exposureUs = 321;
    if (!jpeg.empty()) {
        h.rgbWidth = rgbW;
        h.rgbHeight = rgbH;
        h.rgbEncoding = d3proto::RgbEncoding::Jpeg;
        h.rgbBytes = uint32_t(jpeg.size());
    }
    std::vector<uint16_t> depth(32), amplitude(32);
    std::vector<uint8_t> ir(32);
    for (int i = 0; i < 32; ++i) {
        depth[i] = uint16_t(1000 + 257 * i);  // both bytes differ: a swap shows
        amplitude[i] = uint16_t(40000 - i);
        ir[i] = uint8_t(i * 3);
    }
    std::vector<uint8_t> out;
    d3proto::encodeFrame(h, depth.data(), ir.data(), amplitude.data(), jpeg.empty() ? nullptr : jpeg.data(), out);
    return out;
}

std::vector<uint8_t> greyJpeg(int w, int h) {
    std::vector<uint8_t> rgb(size_t(w) * h * 3, 128);
    tjhandle tj = tjInitCompress();
    unsigned char* buf = nullptr;
    unsigned long size = 0;
    tjCompress2(tj, rgb.data(), w, w * 3, h, TJPF_RGB, &buf, &size, TJSAMP_444, 90, 0);
    std::vector<uint8_t> out(buf, buf + size);
    tjFree(buf);
    tjDestroy(tj);
    return out;
}

}  // namespace

TEST(FrameUnpacker, KeepsValuesOrderAndShape) {
    d3sdk::FrameUnpacker unpacker;
    d3sdk::Frame f;
    const auto payload = framePayload(17);
    ASSERT_TRUE(unpacker.unpack(payload.data(), payload.size(), f));
    EXPECT_EQ(f.frameId, 17u);
    EXPECT_EQ(f.exposureUs, 321u);
    EXPECT_EQ(f.depth.cols(), 8u);
    EXPECT_EQ(f.depth.rows(), 4u);
    EXPECT_EQ(f.depth.data()[0], 1000);
    EXPECT_EQ(f.depth.data()[9], 1000 + 257 * 9);  // row 1, column 1
    EXPECT_EQ(f.amplitude.data()[31], 40000 - 31);
    EXPECT_EQ(f.ir.data()[5], 15);
    EXPECT_EQ(f.rgb.cols(), 0u);  // no colour in this frame
}

TEST(FrameUnpacker, RejectsTruncatedFramesAndColourOfTheWrongSize) {
    d3sdk::FrameUnpacker unpacker;
    d3sdk::Frame f;
    const auto payload = framePayload(1);
    EXPECT_FALSE(unpacker.unpack(payload.data(), payload.size() - 1, f));
    EXPECT_FALSE(unpacker.unpack(payload.data(), 20, f));
    const auto jpeg = greyJpeg(32, 16);
    const auto good = framePayload(2, jpeg, 32, 16);
    ASSERT_TRUE(unpacker.unpack(good.data(), good.size(), f));
    EXPECT_EQ(f.rgb.cols(), 32u);
    EXPECT_NEAR(f.rgb.data()[100].g, 128, 3);
    // The header promises a size the JPEG does not have.
    const auto lying = framePayload(3, jpeg, 16, 32);
    EXPECT_FALSE(unpacker.unpack(lying.data(), lying.size(), f));
}

// Receivers hand the payload over as it came: 16-bit sections are read in
// place, except one at an odd offset (an image with an odd pixel count puts
// amplitude there), which must still come out right.
TEST(FrameUnpacker, ReadsSectionsInPlaceAndMisalignedOnesThroughACopy) {
    d3sdk::FrameUnpacker unpacker;
    d3sdk::Frame f;
    const auto even = framePayload(5);
    f.payload.reserve(even.size());
    std::copy(even.begin(), even.end(), f.payload.data());
    ASSERT_TRUE(unpacker.unpackInPlace(even.size(), f));
    EXPECT_EQ(static_cast<const void*>(f.depth.data()), f.payload.data() + d3proto::kFrameHeaderSize);
    EXPECT_EQ(f.depth.data()[9], 1000 + 257 * 9);
    EXPECT_FALSE(unpacker.unpackInPlace(f.payload.capacity() + 1, f));

    d3proto::FrameHeader h;
    h.tofWidth = 3;
    h.tofHeight = 3;
    const std::vector<uint16_t> depth{1, 2, 3, 4, 5, 6, 7, 8, 0x1234};
    const std::vector<uint16_t> amplitude{9, 8, 7, 6, 5, 4, 3, 2, 0xabcd};
    const std::vector<uint8_t> ir(9, 77);
    std::vector<uint8_t> odd;
    d3proto::encodeFrame(h, depth.data(), ir.data(), amplitude.data(), nullptr, odd);
    ASSERT_TRUE(unpacker.unpack(odd.data(), odd.size(), f));
    EXPECT_EQ(std::vector<uint16_t>(f.depth.data(), f.depth.data() + 9), depth);
    EXPECT_EQ(std::vector<uint16_t>(f.amplitude.data(), f.amplitude.data() + 9), amplitude);
    EXPECT_EQ(f.amplitude.cols(), 3u);
    EXPECT_EQ(f.ir.data()[8], 77);
}

namespace {

// mincore() answers ENOMEM for a range that is not mapped any more.
bool mapped(const void* p) {
    unsigned char resident = 0;
    return ::mincore(const_cast<void*>(p), 1, &resident) == 0 || errno != ENOMEM;
}

}  // namespace

// A session's frames are freed when it ends; the storage must go back to the
// system every time, not only the first (malloc keeps frame-sized blocks in
// its arenas once one has been freed), and room a frame does not use must not
// become resident.
TEST(PayloadBuffer, StorageGoesBackToTheSystemEveryTimeAndUnusedRoomStaysUntouched) {
    const long page = ::sysconf(_SC_PAGESIZE);
    constexpr size_t kFrame = size_t(8) << 20;
    for (int session = 0; session < 3; ++session) {
        uint8_t* storage = nullptr;
        {
            d3sdk::PayloadBuffer buffer;
            buffer.reserve(kFrame);
            ASSERT_GE(buffer.capacity(), kFrame);
            storage = buffer.data();
            std::fill_n(storage, 100, uint8_t(7));
            std::vector<unsigned char> resident((buffer.capacity() + size_t(page) - 1) / size_t(page));
            ASSERT_EQ(::mincore(storage, buffer.capacity(), resident.data()), 0);
            EXPECT_EQ(std::count_if(resident.begin(), resident.end(), [](unsigned char r) { return r & 1; }), 1)
                << "session " << session;
            ASSERT_TRUE(mapped(storage));
        }
        EXPECT_FALSE(mapped(storage)) << "session " << session;
    }
}

TEST(PayloadBuffer, KeepsStorageThatFitsAndSwapsWhole) {
    d3sdk::PayloadBuffer a, b;
    a.reserve(1000);
    uint8_t* first = a.data();
    a.reserve(10);
    EXPECT_EQ(a.data(), first);
    a.reserve(a.capacity() + 1);
    EXPECT_NE(a.data(), nullptr);
    EXPECT_FALSE(mapped(first));  // the smaller storage went when it grew
    first = a.data();
    const size_t capacity = a.capacity();
    a.swap(b);
    EXPECT_EQ(a.data(), nullptr);
    EXPECT_EQ(a.capacity(), 0u);
    EXPECT_EQ(b.data(), first);
    EXPECT_EQ(b.capacity(), capacity);
}

TEST(FrameExchange, DeliversEachFrameOnceAndOnlyTheNewest) {
    d3sdk::FrameExchange ex;
    ex.back().frameId = 1;
    EXPECT_FALSE(ex.publish());
    ex.back().frameId = 2;
    EXPECT_TRUE(ex.publish());  // frame 1 was never read: it is replaced
    const d3sdk::Frame* f = ex.acquire(100ms);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->frameId, 2u);
    EXPECT_EQ(ex.acquire(50ms), nullptr);  // already delivered
    // The slot being read is never the one the receiver fills next.
    ex.back().frameId = 3;
    EXPECT_EQ(f->frameId, 2u);
}

TEST(FrameExchange, CloseWakesAWaitingReaderAndDiscardForgets) {
    d3sdk::FrameExchange ex;
    std::atomic<bool> waiting{false};
    const d3sdk::Frame* got = &ex.back();
    std::chrono::steady_clock::duration waited{};
    std::thread reader([&] {
        const auto t0 = std::chrono::steady_clock::now();
        waiting = true;
        got = ex.acquire(60s);
        waited = std::chrono::steady_clock::now() - t0;
    });
    ASSERT_TRUE(d3test::waitUntil([&] { return bool(waiting); }));
    ex.close();
    reader.join();
    EXPECT_EQ(got, nullptr);
    // Woken by the close, far sooner than its own timeout.
    EXPECT_LT(waited, 30s);
    ex.reopen();
    ex.back().frameId = 9;
    ex.publish();
    ex.discard();
    EXPECT_EQ(ex.acquire(20ms), nullptr);
    ex.back().frameId = 10;
    ex.publish();
    ASSERT_NE(ex.acquire(20ms), nullptr);
}
