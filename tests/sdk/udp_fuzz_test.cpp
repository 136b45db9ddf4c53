// Datagrams that are not what the camera sends, arriving at the SDK's stream
// port from the camera's own address while it streams: random bytes, cut-off
// datagrams, and well-formed headers that lie (sizes, offsets, counts, frame
// ids, forged whole frames). Nothing may crash or hang, and the real stream
// goes on. Built for the sanitizer runs too.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include "CameraServer.h"
#include "d3_protocol/Frame.h"
#include "d3_protocol/Message.h"
#include "d3_protocol/Udp.h"
#include "d3_sdk/DeviceManager.h"
#include "d3_sdk/Extensions.h"
#include "waituntil.h"

namespace {

using namespace std::chrono_literals;

constexpr const char* kCameraIp = "127.0.81.2";

// A sender bound to the camera's address, so its datagrams pass the SDK's
// source check and reach the parser.
class Forger {
public:
    explicit Forger(uint16_t sdkPort) {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        inet_pton(AF_INET, kCameraIp, &local.sin_addr);
        EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr*>(&local), sizeof local), 0);
        to_.sin_family = AF_INET;
        to_.sin_port = htons(sdkPort);
        inet_pton(AF_INET, "127.0.0.1", &to_.sin_addr);
    }
    ~Forger() { ::close(fd_); }
    void send(const std::vector<uint8_t>& d) {
        ::sendto(fd_, d.data(), d.size(), 0, reinterpret_cast<const sockaddr*>(&to_), sizeof to_);
        // A short breath now and then, so the burst tests the parser rather than
        // the socket buffer (pacing the forger, not waiting for anything).
        if (++sent_ % 64 == 0) std::this_thread::sleep_for(200us);
    }

private:
    int fd_ = -1;
    sockaddr_in to_{};
    uint64_t sent_ = 0;
};

std::vector<uint8_t> dataDatagram(uint32_t frameId, uint16_t packetId, uint16_t count, uint32_t frameBytes,
                                  size_t chunk, std::mt19937& rng) {
    std::vector<uint8_t> d(d3proto::kUdpHeaderSize + chunk);
    d3proto::writeUdpDataHeader({frameId, packetId, count, frameBytes}, d.data());
    for (size_t i = d3proto::kUdpHeaderSize; i < d.size(); ++i) d[i] = uint8_t(rng());
    return d;
}

// A whole frame that parses as one (consistent sections, no colour), cut
// into datagrams.
void forgeWholeFrame(Forger& f, uint32_t frameId, uint16_t width, uint16_t height, std::mt19937& rng) {
    d3proto::FrameHeader h;
    h.frameId = frameId;
    h.tofWidth = width;
    h.tofHeight = height;
    std::vector<uint16_t> depth(size_t(width) * height, uint16_t(rng()));
    std::vector<uint8_t> ir(size_t(width) * height, 7), payload;
    d3proto::encodeFrame(h, depth.data(), ir.data(), depth.data(), nullptr, payload);
    const uint16_t count = uint16_t(d3proto::udpPacketCount(uint32_t(payload.size())));
    std::vector<uint8_t> d;
    for (uint16_t p = 0; p < count; ++p) {
        const size_t off = size_t(p) * d3proto::kUdpChunk;
        const size_t len = std::min(d3proto::kUdpChunk, payload.size() - off);
        d3proto::encodeUdpData({frameId, p, count, uint32_t(payload.size())}, payload.data() + off, len, d);
        f.send(d);
    }
}

}  // namespace

TEST(UdpFuzz, ForgedAndBrokenDatagramsNeitherCrashNorStopTheStream) {
    setenv("D3_DISCOVERY_PORT", "48781", 1);
    setenv("D3_DISCOVERY_ADDRESSES", "127.255.255.255", 1);
    d3sim::ServerConfig cfg;
    cfg.address = kCameraIp;
    cfg.model = '1';  // no colour: keeps the sanitizer build fast
    cfg.discoveryPort = 48781;
    cfg.fps = 15;
    d3sim::CameraServer cam(cfg);
    ASSERT_TRUE(cam.start()) << cam.lastError();

    DeviceManager& dm = DeviceManager::GetInstance();
    dm.SetTimeout(3000);
    ASSERT_EQ(dm.InitDevice(cam.deviceString(), false), SUCCESS);
    ASSERT_EQ(dm.StartStream(), SUCCESS);
    DataContainer<uint16_t> depth;
    ASSERT_EQ(dm.GetTofData(&depth, nullptr, nullptr, nullptr), SUCCESS);
    d3sdk::StreamStats st;
    ASSERT_EQ(d3sdk::GetStreamStats(st), SUCCESS);
    ASSERT_TRUE(st.udp);
    ASSERT_NE(st.localPort, 0);
    const uint32_t current = st.lastFrameId;

    // An application keeps reading throughout.
    std::atomic<bool> done{false};
    std::atomic<int> failures{0}, frames{0};
    std::thread reader([&] {
        DataContainer<uint16_t> d;
        DataContainer<PointXYZ> points;
        while (!done) {
            const ReturnCode rc = dm.GetTofData(&d, &points, nullptr, nullptr);
            if (rc == SUCCESS) {
                ++frames;
                if (d.rows() != 480 || d.cols() != 640) ++failures;
            } else if (rc != TIMEOUT) {
                ++failures;
            }
        }
    });

    Forger forger(st.localPort);
    std::mt19937 rng(1234);
    auto any = [&](uint32_t n) { return uint32_t(rng() % n); };
    const uint32_t realBytes = d3proto::kFrameHeaderSize + 640 * 480 * 5;
    const uint16_t realCount = uint16_t(d3proto::udpPacketCount(realBytes));
    for (int i = 0; i < 6000; ++i) {
        std::vector<uint8_t> d;
        const uint32_t near = current + any(64);
        switch (i % 10) {
            case 0: {  // random bytes, any length up to a jumbo frame
                d.resize(any(9000));
                for (auto& b : d) b = uint8_t(rng());
                break;
            }
            case 1: {  // a real-looking datagram cut short anywhere
                d = dataDatagram(near, uint16_t(any(realCount)), realCount, realBytes, d3proto::kUdpChunk, rng);
                d.resize(any(uint32_t(d.size())));
                break;
            }
            case 2:  // size and count disagree
                d = dataDatagram(near, 0, uint16_t(any(0xFFFF)), any(0xFFFFFFFFu), d3proto::kUdpChunk, rng);
                break;
            case 3:  // packet id past the count: an offset beyond the frame
                d = dataDatagram(near, uint16_t(realCount + any(1000)), realCount, realBytes, d3proto::kUdpChunk, rng);
                break;
            case 4: {  // huge frame with a consistent count: beyond what the camera's images allow
                const uint32_t bytes = d3proto::kMaxStreamPayload - any(1000);
                const uint16_t count = uint16_t(d3proto::udpPacketCount(bytes));
                d = dataDatagram(near, uint16_t(any(count - 1)), count, bytes, d3proto::kUdpChunk, rng);
                break;
            }
            case 5:  // a frame the real one's size but never finished, far ahead or far behind
                d = dataDatagram(current + (any(2) ? 1u << 30 : 0u - (1u << 30)) + any(100),
                                 uint16_t(any(realCount - 1)), realCount, realBytes, d3proto::kUdpChunk, rng);
                break;
            case 6:  // the same frame id announced with another size than its first datagram
                d = dataDatagram(near, uint16_t(any(3)), 3, uint32_t(2 * d3proto::kUdpChunk + 1 + any(1399)),
                                 d3proto::kUdpChunk, rng);
                break;
            case 7: {  // a resend request or hello sent the wrong way, possibly with trailing bytes
                d3proto::UdpResend r{near, {{0, 5}}};
                if (any(2))
                    d3proto::encodeUdpResend(r, d);
                else
                    d3proto::encodeUdpHello(rng(), d);
                d.resize(d.size() + any(3));
                break;
            }
            case 8:  // a one-datagram frame whose payload is garbage
                d = dataDatagram(near + 100, 0, 1, 1 + any(1400), 0, rng);
                d.resize(d3proto::kUdpHeaderSize + d3proto::getU32(d.data() + 16));
                for (size_t k = d3proto::kUdpHeaderSize; k < d.size(); ++k) d[k] = uint8_t(rng());
                break;
            case 9:  // whole frames that parse: of another size (refused), or a
                     // real-sized one far ahead, after which real frames look stale for a while
                if (i % 500 == 9) forgeWholeFrame(forger, near + 5, 64, 48, rng);
                if (i == 2999) forgeWholeFrame(forger, current + (1u << 31) - 7, 640, 480, rng);
                continue;
        }
        forger.send(d);
    }

    // The real stream goes on: fresh full-size frames keep coming.
    const int before = frames;
    d3test::waitUntil([&] { return frames >= before + 10; });
    done = true;
    reader.join();
    EXPECT_GE(frames, before + 10);
    EXPECT_EQ(failures, 0);
    ASSERT_EQ(d3sdk::GetStreamStats(st), SUCCESS);
    EXPECT_GT(st.datagramsIgnored, 1000u);
    EXPECT_EQ(dm.StopStream(), SUCCESS);
    EXPECT_EQ(dm.DisconnectFromDevice(), SUCCESS);
}
