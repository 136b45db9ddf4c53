// Receive + unpack over TCP loopback, against a minimal camera stream that
// replays one encoded frame (so the camera's rendering cost is not measured).
#include <benchmark/benchmark.h>

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <thread>

#include "BenchData.h"
#include "FrameExchange.h"
#include "StreamReceiver.h"
#include "d3_protocol/Commands.h"
#include "d3_protocol/Frame.h"
#include "d3_protocol/Message.h"

namespace {

using asio::ip::tcp;

// Accepts one stream connection, answers its attach, then sends the frame
// over and over (frame ids counting up), at `fps` or as fast as it can (0).
class ReplayCamera {
public:
    ReplayCamera(bool withJpeg, int fps) : acceptor_(io_, tcp::endpoint(asio::ip::address_v4::loopback(), 0)) {
        const std::vector<uint8_t> payload = bench::replayPayload(withJpeg);
        d3proto::Header mh;
        mh.type = d3proto::MessageType::Event;
        mh.command = uint16_t(d3proto::Command::FrameEvent);
        d3proto::appendMessage(mh, payload.data(), payload.size(), message_);
        thread_ = std::thread([this, fps] { serve(fps); });
    }
    ~ReplayCamera() {
        stop_ = true;
        thread_.join();
    }
    uint16_t port() const { return acceptor_.local_endpoint().port(); }
    // CPU time and waits of the sending thread so far (its share of the
    // loopback's work included), to take out of the process's figures.
    double senderCpuSeconds() const { return senderCpu_; }
    long senderWaits() const { return senderWaits_; }

private:
    void serve(int fps) {
        tcp::socket s(io_);
        acceptor_.accept(s);
        uint8_t hdr[d3proto::kHeaderSize];
        d3proto::Header h;
        asio::read(s, asio::buffer(hdr));
        d3proto::decodeHeader(hdr, sizeof hdr, d3proto::kMaxControlPayload, h);
        std::vector<uint8_t> body(h.payloadLength);
        asio::read(s, asio::buffer(body));
        asio::write(s, asio::buffer(d3proto::makeMessage(d3proto::MessageType::Reply, h.command, h.requestId, 2, "")));
        const double cpu0 = bench::threadCpuSeconds();
        const long waits0 = bench::threadWaits();
        auto next = std::chrono::steady_clock::now();
        asio::error_code ec;
        for (uint32_t id = 1; !stop_ && !ec; ++id) {
            d3proto::putU32(message_.data() + 8, id);
            d3proto::putU32(message_.data() + d3proto::kHeaderSize, id);
            asio::write(s, asio::buffer(message_), ec);
            senderCpu_ = bench::threadCpuSeconds() - cpu0;
            senderWaits_ = bench::threadWaits() - waits0;
            if (fps > 0) {
                next += std::chrono::microseconds(1000000 / fps);
                std::this_thread::sleep_until(next);
            }
        }
    }

    asio::io_context io_;
    tcp::acceptor acceptor_;
    std::vector<uint8_t> message_;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<double> senderCpu_{0};
    std::atomic<long> senderWaits_{0};
};

void receive(benchmark::State& state, bool jpeg, int fps) {
    ReplayCamera camera(jpeg, fps);
    d3sdk::FrameExchange exchange;
    d3sdk::StreamReceiver receiver(exchange);
    if (receiver.open("127.0.0.1", camera.port(), 1, std::chrono::seconds(2)) != 2) {
        state.SkipWithError("attach failed");
        return;
    }
    exchange.acquire(std::chrono::seconds(2));  // first frame: connection warm-up
    receiver.resetStats();
    const double cpu0 = bench::processCpuSeconds(), sender0 = camera.senderCpuSeconds();
    const long waits0 = bench::processWaits(), senderWaits0 = camera.senderWaits();
    const auto t0 = std::chrono::steady_clock::now();
    for (auto _ : state) {
        if (!exchange.acquire(std::chrono::seconds(2))) state.SkipWithError("no frame");
    }
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const double cpu = bench::processCpuSeconds() - cpu0;
    const double senderCpu = camera.senderCpuSeconds() - sender0;
    const long waits = bench::processWaits() - waits0 - (camera.senderWaits() - senderWaits0);
    const auto s = receiver.stats();
    receiver.close();
    const double frames = double(state.iterations());
    state.counters["fps"] = frames / wall;
    state.counters["cpu_ms_per_frame"] = 1000.0 * cpu / frames;
    state.counters["sdk_cpu_ms_per_frame"] = 1000.0 * (cpu - senderCpu) / frames;
    state.counters["wakeups_per_frame"] = double(waits) / frames;
    state.counters["latency_ms"] = s.meanUnpackMs;
    state.counters["MB_per_s"] = double(s.bytesReceived) / wall / 1e6;
    state.counters["dropped"] = double(s.framesDropped);
}

// As fast as the loopback and the receiver allow: the time per frame is the
// receive + unpack cost (the sender only writes a ready buffer).
void BM_TcpReceiveUnpack_DepthIrAmplitude(benchmark::State& state) { receive(state, false, 0); }
BENCHMARK(BM_TcpReceiveUnpack_DepthIrAmplitude)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(300);

void BM_TcpReceiveUnpack_WithJpeg1080p(benchmark::State& state) { receive(state, true, 0); }
BENCHMARK(BM_TcpReceiveUnpack_WithJpeg1080p)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(100);

// The frame of the UDP benchmarks at the camera's highest rate, so the two
// transports are compared side by side in one run (sender excluded from
// sdk_cpu_ms_per_frame, as there).
void BM_TcpStream25fps_DepthIrAmplitude(benchmark::State& state) { receive(state, false, 25); }
BENCHMARK(BM_TcpStream25fps_DepthIrAmplitude)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(125);

// A camera at 30 fps sending 640x480 depth + IR + amplitude and 1080p JPEG:
// the SDK must keep up, and cpu_ms_per_frame says what it costs (sender
// included, which only writes a ready buffer).
void BM_Stream30fps_Jpeg1080p(benchmark::State& state) { receive(state, true, 30); }
BENCHMARK(BM_Stream30fps_Jpeg1080p)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(90);

}  // namespace
