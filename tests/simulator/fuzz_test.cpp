// A burst of random, malformed and truncated input at a camera's discovery,
// control and stream ports. Nothing may crash or leak (this program also runs
// under AddressSanitizer), and the camera must still work afterwards.
// Address block 127.0.87.x, discovery port 48787. D3_FUZZ_SEED repeats a run.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <random>

#include "rawclient.h"
#include "SimulatedCameras.h"
#include "d3_protocol/Frame.h"

using d3proto::Command;
using d3proto::Json;
using d3test::RawClient;
namespace st = d3proto::status;

namespace {

constexpr uint16_t kDiscoveryPort = 48787;
const char* const kAddress = "127.0.87.2";

class Fuzzer {
public:
    explicit Fuzzer(uint32_t seed) : rng_(seed) {}

    int below(int n) { return int(rng_() % uint32_t(n)); }
    bool coin() { return below(2) == 0; }

    std::vector<uint8_t> bytes(size_t maxLen) {
        std::vector<uint8_t> b(size_t(below(int(maxLen) + 1)));
        for (auto& x : b) x = uint8_t(rng_());
        return b;
    }

    // A value of any JSON type, sometimes nested, sometimes extreme.
    Json value(int depth = 0) {
        switch (below(depth > 2 ? 7 : 9)) {
            case 0:
                return below(40) - 20;
            case 1:
                return int64_t(rng_()) * (coin() ? 1 : -1) * 1000003;
            case 2:
                return std::uniform_real_distribution<double>(-1e6, 1e6)(rng_);
            case 3:
                return coin();
            case 4:
                return nullptr;
            case 5: {
                static const char* const texts[] = {"", "x", "1.2.3", "999.1.1.1", "tcp", "udp", "-1"};
                return texts[below(7)];
            }
            case 6:
                return std::string(size_t(below(300)), char('a' + below(26)));
            case 7: {
                Json a = Json::array();
                for (int i = below(4); i > 0; --i) a.push_back(value(depth + 1));
                return a;
            }
            default:
                return object(depth + 1);
        }
    }

    // An object with the field names commands read, holding values of any type.
    Json object(int depth = 0) {
        static const char* const keys[] = {"value",   "value2", "enable", "ms",        "us",    "ip",   "netmask",
                                           "gateway", "dhcp",   "client", "transport", "token", "error"};
        Json o = Json::object();
        for (int i = below(5); i > 0; --i) o[keys[below(13)]] = value(depth);
        return o;
    }

    // A header that decodes, or nearly: the fields a receiver checks are
    // sometimes wrong, and the payload is sometimes shorter than announced.
    std::vector<uint8_t> message(uint16_t command, const std::vector<uint8_t>& payload) {
        d3proto::Header h;
        h.type = below(10) == 0 ? d3proto::MessageType(below(6)) : d3proto::MessageType::Request;
        h.command = command;
        h.requestId = rng_();
        h.status = below(4) == 0 ? int32_t(rng_()) : 0;
        h.payloadLength = uint32_t(payload.size());
        std::vector<uint8_t> out(d3proto::kHeaderSize);
        d3proto::encodeHeader(h, out.data());
        switch (below(12)) {
            case 0:
                out[4] = uint8_t(below(256));  // version
                break;
            case 1:
                out[below(4)] ^= uint8_t(1 + below(255));  // magic
                break;
            case 2:  // a length far beyond what follows (or any limit)
                d3proto::putU32(out.data() + 16, rng_());
                break;
            default:
                break;
        }
        out.insert(out.end(), payload.begin(), payload.end());
        if (below(6) == 0) out.resize(size_t(below(int(out.size()) + 1)));  // truncated
        return out;
    }

    std::vector<uint8_t> json() {
        // Invalid UTF-8 inside a string cannot come out of the JSON writer.
        if (below(16) == 0) return {'{', '"', 'i', 'p', '"', ':', '"', 0xff, 0xfe, '"', '}'};
        const std::string s = (below(8) == 0 ? value() : object()).dump();
        return std::vector<uint8_t>(s.begin(), s.end());
    }

    uint16_t anyCommand() {
        int count = 0;
        const d3proto::CommandInfo* table = d3proto::commandTable(count);
        return below(5) == 0 ? uint16_t(rng_()) : uint16_t(table[below(count)].id);
    }

private:
    std::mt19937 rng_;
};

uint32_t fuzzSeed() {
    const char* env = std::getenv("D3_FUZZ_SEED");
    return env ? uint32_t(std::strtoul(env, nullptr, 10)) : 20261123u;
}

void sendDatagram(int fd, const std::string& ip, uint16_t port, const std::vector<uint8_t>& bytes) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    ::inet_pton(AF_INET, ip.c_str(), &to.sin_addr);
    ::sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
}

// Commands that reboot the camera on valid input are left out of the session
// burst so it keeps one camera to talk to; their argument checks are still hit
// through SetNetworkMode, whose random arguments are never a usable address.
bool rebootsOnAnyInput(uint16_t command) {
    return command == uint16_t(Command::DeleteConfig) || command == uint16_t(Command::FactoryDefaults);
}

}  // namespace

TEST(Fuzz, GarbageAtEveryPortNeverTakesTheCameraDown) {
    const uint32_t seed = fuzzSeed();
    SCOPED_TRACE("D3_FUZZ_SEED=" + std::to_string(seed));
    Fuzzer f(seed);
    d3sim::ServerConfig cfg;
    cfg.address = kAddress;
    cfg.model = '3';
    cfg.discoveryPort = kDiscoveryPort;
    cfg.rebootMs = 200;
    d3sim::CameraServer cam(cfg);
    ASSERT_TRUE(cam.start()) << cam.lastError();

    // Datagrams: discovery (unicast and broadcast) and the stream port.
    const int udp = ::socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_GE(udp, 0);
    const int on = 1;
    ::setsockopt(udp, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    for (int i = 0; i < 1500; ++i) {
        std::vector<uint8_t> d;
        if (f.coin())
            d = f.bytes(1500);
        else
            d = f.message(f.below(3) == 0 ? uint16_t(Command::Discover) : f.anyCommand(), f.bytes(64));
        const int target = f.below(3);
        sendDatagram(udp, target == 1 ? "127.255.255.255" : kAddress, target == 2 ? cfg.streamPort : kDiscoveryPort, d);
    }
    ::close(udp);

    // Short-lived control and stream connections with garbage, cut off anywhere.
    for (int i = 0; i < 150; ++i) {
        RawClient c;
        ASSERT_TRUE(c.connect(kAddress, f.coin() ? cfg.controlPort : cfg.streamPort)) << "connection " << i;
        for (int m = f.below(4); m >= 0; --m) {
            const std::vector<uint8_t> bytes =
                f.below(3) == 0 ? f.bytes(200) : f.message(f.anyCommand(), f.coin() ? f.bytes(100) : f.json());
            if (!c.sendRaw(bytes)) break;
        }
    }

    // Inside a session: well-framed requests with arguments of every wrong
    // shape. Each must be answered, with its own request id.
    RawClient c;
    ASSERT_TRUE(c.connect(kAddress, cfg.controlPort));
    ASSERT_NE(c.open("fuzzer"), 0u);
    int answered = 0;
    for (int i = 0; i < 400; ++i) {
        uint16_t command = f.anyCommand();
        if (rebootsOnAnyInput(command)) continue;
        const uint32_t id = 1000u + uint32_t(i);
        const std::vector<uint8_t> payload = f.below(4) == 0 ? f.bytes(80) : f.json();
        const auto bytes = d3proto::makeMessage(d3proto::MessageType::Request, command, id, 0,
                                                std::string(payload.begin(), payload.end()));
        ASSERT_TRUE(c.sendRaw(bytes));
        d3test::Reply r;
        do {
            r = c.read(3000);
        } while (r.ok && r.header.type != d3proto::MessageType::Reply);
        ASSERT_TRUE(r.ok) << "no answer to request " << id << " command " << command;
        EXPECT_EQ(r.header.requestId, id);
        EXPECT_EQ(r.header.command, command);
        ++answered;
        if (command == uint16_t(Command::CloseSession) && r.status() == st::kSuccess) {
            // The session is over and the camera hangs up: start another.
            c.close();
            ASSERT_TRUE(c.connect(kAddress, cfg.controlPort));
            ASSERT_NE(c.open("fuzzer"), 0u);
        }
    }
    EXPECT_GT(answered, 300);
    c.close();

    // Still a working camera: found, opened, configured, streaming.
    ASSERT_TRUE(cam.waitUntilUp(3000));
    const auto found = d3test::discover(kDiscoveryPort, 500);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].serial, cam.serial());
    RawClient good;
    ASSERT_TRUE(good.connect(kAddress, cfg.controlPort));
    const uint32_t token = good.open("after-the-storm");
    ASSERT_NE(token, 0u);
    ASSERT_EQ(good.call(Command::SetFrameRate, {{"value", 10}}).status(), st::kSuccess);
    ASSERT_EQ(good.call(Command::StartStream).status(), st::kSuccess);
    RawClient stream;
    ASSERT_TRUE(stream.connect(kAddress, cfg.streamPort));
    ASSERT_EQ(stream.call(Command::AttachStream, {{"token", token}}).status(), st::kSuccess);
    bool frame = false;
    for (int i = 0; i < 10 && !frame; ++i) {
        const d3test::Reply r = stream.read(3000);
        ASSERT_TRUE(r.ok);
        frame = r.header.command == uint16_t(Command::FrameEvent);
    }
    EXPECT_TRUE(frame);
}
