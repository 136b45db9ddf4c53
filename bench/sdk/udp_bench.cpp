// Receive + reassemble + unpack over UDP loopback, against a minimal camera
// that replays one encoded frame (no JPEG) as datagrams, drops a chosen share
// of them (resends too) and answers resend requests. It sends either in
// bursts of 64 datagrams 50 us apart (a frame in a few milliseconds), or
// paced as the simulated camera sends: bursts of 32 spread over half the
// frame period.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "BenchData.h"
#include "FrameExchange.h"
#include "UdpReceiver.h"
#include "d3_protocol/Frame.h"
#include "d3_protocol/Message.h"
#include "d3_protocol/Udp.h"

namespace {

using Clock = std::chrono::steady_clock;

enum class Pacing { Bursts64, LikeCamera };

class ReplayUdpCamera {
public:
    static constexpr uint32_t kToken = 77;

    // fps 0: the next frame goes out once the previous one was taken (`next()`).
    ReplayUdpCamera(int fps, double loss, Pacing pacing = Pacing::Bursts64)
        : fps_(fps), loss_(loss), pacing_(pacing), payload_(bench::replayPayload(false)) {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a);
        socklen_t len = sizeof a;
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len);
        port_ = ntohs(a.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~ReplayUdpCamera() {
        stop_ = true;
        thread_.join();
        ::close(fd_);
    }
    uint16_t port() const { return port_; }
    void next() { ++permits_; }
    double senderCpuSeconds() const { return senderCpu_; }
    long senderWaits() const { return senderWaits_; }

private:
    void send(uint32_t id, uint16_t p) {
        if (loss_ > 0 && std::uniform_real_distribution<double>(0, 1)(rng_) < loss_) return;
        // The first datagram carries the frame id inside the payload too.
        if (p == 0) d3proto::putU32(payload_.data(), id);
        const uint16_t count = uint16_t(d3proto::udpPacketCount(uint32_t(payload_.size())));
        const size_t off = size_t(p) * d3proto::kUdpChunk;
        d3proto::encodeUdpData({id, p, count, uint32_t(payload_.size())}, payload_.data() + off,
                               std::min(d3proto::kUdpChunk, payload_.size() - off), dgram_);
        ::sendto(fd_, dgram_.data(), dgram_.size(), 0, reinterpret_cast<sockaddr*>(&client_), sizeof client_);
    }
    // Handles hellos and resend requests that arrived, waiting up to `ms`.
    void service(int ms) {
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, ms) <= 0) return;
        uint8_t buf[2048];
        for (;;) {
            sockaddr_in from{};
            socklen_t len = sizeof from;
            const ssize_t n = ::recvfrom(fd_, buf, sizeof buf, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &len);
            if (n < 0) return;
            uint32_t token;
            d3proto::UdpResend r;
            if (d3proto::decodeUdpHello(buf, size_t(n), token)) {
                client_ = from;
                haveClient_ = true;
                ::sendto(fd_, buf, size_t(n), 0, reinterpret_cast<sockaddr*>(&from), len);
            } else if (d3proto::decodeUdpResend(buf, size_t(n), r) && id_ - r.frameId < 8) {
                for (const auto& range : r.ranges)
                    for (uint32_t q = range.first;
                         q <= range.last && q < d3proto::udpPacketCount(uint32_t(payload_.size())); ++q)
                        send(r.frameId, uint16_t(q));
            }
        }
    }
    void serve() {
        const double cpu0 = bench::threadCpuSeconds();
        const long waits0 = bench::threadWaits();
        auto next = Clock::now();
        const uint16_t count = uint16_t(d3proto::udpPacketCount(uint32_t(payload_.size())));
        const uint16_t burst = pacing_ == Pacing::LikeCamera ? 32 : 64;
        const auto gap = pacing_ == Pacing::LikeCamera && fps_ > 0
                             ? std::chrono::microseconds(1000000 / fps_ / 2 / ((count + burst - 1) / burst))
                             : std::chrono::microseconds(50);
        while (!stop_ && !haveClient_) service(10);
        while (!stop_) {
            if (fps_ > 0) {
                while (!stop_ && Clock::now() < next) service(1);
                next += std::chrono::microseconds(1000000 / fps_);
            } else {
                while (!stop_ && permits_ == 0) service(1);
                --permits_;
            }
            ++id_;
            auto burstAt = Clock::now();
            for (uint16_t p = 0; p < count && !stop_; ++p) {
                send(id_, p);
                // Paced as a camera does, so the loopback's queues do not overflow.
                if (p % burst == burst - 1) {
                    service(0);
                    burstAt += gap;
                    if (pacing_ == Pacing::LikeCamera)
                        std::this_thread::sleep_until(burstAt);
                    else
                        std::this_thread::sleep_for(gap);
                }
            }
            service(0);
            senderCpu_ = bench::threadCpuSeconds() - cpu0;
            senderWaits_ = bench::threadWaits() - waits0;
        }
    }

    int fps_;
    double loss_;
    Pacing pacing_;
    std::mt19937_64 rng_{5};
    std::vector<uint8_t> payload_, dgram_;
    int fd_ = -1;
    uint16_t port_ = 0;
    sockaddr_in client_{};
    std::atomic<bool> haveClient_{false};
    std::atomic<int> permits_{1};
    std::atomic<bool> stop_{false};
    std::atomic<double> senderCpu_{0};
    std::atomic<long> senderWaits_{0};
    uint32_t id_ = 0;
    std::thread thread_;
};

void receive(benchmark::State& state, int fps, double loss, Pacing pacing = Pacing::Bursts64) {
    ReplayUdpCamera camera(fps, loss, pacing);
    d3sdk::FrameExchange exchange;
    d3proto::ImageInfo image;  // 640x480, no colour
    d3sdk::UdpReceiver receiver(exchange, image);
    if (receiver.open("127.0.0.1", camera.port(), ReplayUdpCamera::kToken, std::chrono::seconds(2)) != 2) {
        state.SkipWithError("hello not answered");
        return;
    }
    exchange.acquire(std::chrono::seconds(2));  // warm-up frame
    camera.next();
    receiver.resetStats();
    const double cpu0 = bench::processCpuSeconds(), sender0 = camera.senderCpuSeconds();
    const long waits0 = bench::processWaits(), senderWaits0 = camera.senderWaits();
    const auto t0 = Clock::now();
    for (auto _ : state) {
        if (!exchange.acquire(std::chrono::seconds(2))) state.SkipWithError("no frame");
        camera.next();
    }
    const double wall = std::chrono::duration<double>(Clock::now() - t0).count();
    const double sdkCpu = bench::processCpuSeconds() - cpu0 - (camera.senderCpuSeconds() - sender0);
    const long waits = bench::processWaits() - waits0 - (camera.senderWaits() - senderWaits0);
    const auto s = receiver.stats();
    receiver.close();
    const double frames = double(state.iterations());
    const double attempted = double(s.framesComplete + s.framesIncomplete);
    state.counters["fps"] = frames / wall;
    state.counters["sdk_cpu_ms_per_frame"] = 1000.0 * sdkCpu / frames;
    state.counters["wakeups_per_frame"] = double(waits) / frames;
    state.counters["latency_ms"] = s.meanUnpackMs;
    state.counters["complete_ratio"] = attempted > 0 ? double(s.framesComplete) / attempted : 0.0;
    state.counters["incomplete"] = double(s.framesIncomplete);
    state.counters["pkt_lost"] = double(s.packetsLost);
    state.counters["pkt_recovered"] = double(s.packetsRecovered);
    state.counters["pkt_requested"] = double(s.packetsResendRequested);
}

// One frame after another as soon as the previous one was taken: the SDK's
// CPU per frame is the receive + reassembly + unpack cost (sender excluded).
void BM_UdpReceiveUnpack_DepthIrAmplitude(benchmark::State& state) { receive(state, 0, 0.0); }
BENCHMARK(BM_UdpReceiveUnpack_DepthIrAmplitude)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(300);

// A camera at 25 fps losing 0 %, 1 % and 10 % of its datagrams (resends too).
void BM_UdpStream25fps_LossPercent(benchmark::State& state) { receive(state, 25, double(state.range(0)) / 100.0); }
BENCHMARK(BM_UdpStream25fps_LossPercent)
    ->Arg(0)
    ->Arg(1)
    ->Arg(10)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(125);

// The same at the simulated camera's pacing: a frame's datagrams arrive over
// 20 ms, so the receiver's wake-ups rather than its copies set the cost.
void BM_UdpCameraPaced25fps_LossPercent(benchmark::State& state) {
    receive(state, 25, double(state.range(0)) / 100.0, Pacing::LikeCamera);
}
BENCHMARK(BM_UdpCameraPaced25fps_LossPercent)
    ->Arg(0)
    ->Arg(10)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(125);

}  // namespace
