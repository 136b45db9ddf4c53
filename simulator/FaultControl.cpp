#include "FaultControl.h"

#include <asio.hpp>
#include <cmath>
#include <cstdlib>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "CloseOnExec.h"
#include "d3_protocol/Commands.h"

namespace d3sim {

namespace {

constexpr size_t kMaxLine = 512;

bool toDouble(const std::string& s, double& out) {
    char* end = nullptr;
    out = std::strtod(s.c_str(), &end);
    return !s.empty() && end && *end == '\0' && std::isfinite(out);
}

bool toInt(const std::string& s, long long& out) {
    char* end = nullptr;
    out = std::strtoll(s.c_str(), &end, 10);
    return !s.empty() && end && *end == '\0';
}

bool knownCommandName(const std::string& name) {
    int count = 0;
    const d3proto::CommandInfo* table = d3proto::commandTable(count);
    for (int i = 0; i < count; ++i)
        if (name == table[i].name) return true;
    return false;
}

std::string status(CameraServer& camera) {
    std::ostringstream out;
    LinkFaults& f = camera.faults();
    out << "ok serial=" << camera.serial() << " address=" << camera.address() << " killed=" << camera.killed()
        << " paused=" << f.paused() << " loss=" << f.loss() << " latencyMs=" << f.latencyMs()
        << " jitterMs=" << f.jitterMs() << " bandwidthMbit=" << f.bandwidthMbit()
        << " firmware=" << camera.camera().firmwareVersion() << " installed=" << camera.camera().installedFirmware()
        << " firmwareFaults=" << camera.firmwareFaults();
    return out.str();
}

}  // namespace

const char* faultCommandHelp() {
    return "loss RATIO [SEED]    drop this share (0..1) of stream datagrams, seeded\n"
           "latency MS           delay every control reply and frame by MS (0..10000)\n"
           "jitter MS            delay each reply and frame by a further 0..MS (0..10000), order kept\n"
           "bandwidth MBIT       limit the stream to MBIT Mbit/s (0 lifts the limit); frames that\n"
           "                     do not fit are not sent\n"
           "pause SECONDS        answer nothing for SECONDS (0..600), then carry on\n"
           "kill [SECONDS]       vanish from the network; come back after SECONDS if given\n"
           "restart              come back after kill, with the stored settings and address\n"
           "fail CODE [COMMAND]  the next call (named COMMAND, e.g. SetFrameRate) fails with CODE\n"
           "address IP           store a new address and reboot onto it\n"
           "trigger              one edge on the hardware trigger input\n"
           "firmware fail PCT    the next firmware update loses the camera once PCT % (0..100) of the image\n"
           "                     has arrived: the update's connection drops, the old firmware stays\n"
           "firmware stall PCT   the next firmware update stops being answered from PCT % of the image on\n"
           "firmware badflash    the next firmware write fails its verification; the old firmware stays\n"
           "firmware clear       disarm the firmware faults\n"
           "status               what the camera is doing now\n";
}

std::string runFaultCommand(CameraServer& camera, const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> w;
    for (std::string word; in >> word;) w.push_back(word);
    if (w.empty()) return "error: empty command";
    const std::string& cmd = w[0];
    const size_t n = w.size();
    double d = 0;
    long long i = 0;
    if (cmd == "help")
        return "ok commands: loss latency jitter bandwidth pause kill restart fail address trigger firmware status";
    if (cmd == "status" && n == 1) return status(camera);
    if (cmd == "loss" && (n == 2 || n == 3)) {
        if (!toDouble(w[1], d) || d < 0 || d > 1) return "error: loss ratio must be between 0 and 1";
        long long seed = (long long)camera.config().seed;
        if (n == 3 && !toInt(w[2], seed)) return "error: bad seed " + w[2];
        camera.faults().setLoss(d, uint64_t(seed));
        return "ok loss " + w[1];
    }
    if (cmd == "latency" && n == 2) {
        if (!toInt(w[1], i) || i < 0 || i > 10000) return "error: latency must be 0..10000 ms";
        camera.faults().setLatencyMs(int(i));
        return "ok latency " + w[1] + " ms";
    }
    if (cmd == "jitter" && n == 2) {
        if (!toInt(w[1], i) || i < 0 || i > 10000) return "error: jitter must be 0..10000 ms";
        camera.faults().setJitterMs(int(i));
        return "ok jitter " + w[1] + " ms";
    }
    if (cmd == "bandwidth" && n == 2) {
        if (!toDouble(w[1], d) || d < 0 || d > 100000) return "error: bandwidth must be 0..100000 Mbit/s";
        camera.faults().setBandwidthMbit(d);
        return d > 0 ? "ok bandwidth " + w[1] + " Mbit/s" : std::string("ok bandwidth unlimited");
    }
    if (cmd == "pause" && n == 2) {
        if (!toDouble(w[1], d) || d < 0 || d > 600) return "error: pause must be 0..600 s";
        camera.pause(int(std::lround(d * 1000)));
        return "ok paused for " + w[1] + " s";
    }
    if (cmd == "kill" && (n == 1 || n == 2)) {
        if (n == 2 && (!toDouble(w[1], d) || d <= 0 || d > 3600)) return "error: kill time must be 0..3600 s";
        camera.kill(int(std::lround(d * 1000)));
        return n == 2 ? "ok killed for " + w[1] + " s" : std::string("ok killed");
    }
    if (cmd == "restart" && n == 1) {
        if (!camera.killed()) return "error: the camera is running";
        if (!camera.restart()) return "error: " + camera.lastError();
        return "ok restarted at " + camera.address();
    }
    if (cmd == "fail" && (n == 2 || n == 3)) {
        if (!toInt(w[1], i) || i == 0 || i == d3proto::status::kSuccess || i < INT32_MIN || i > INT32_MAX)
            return "error: the code must be a non-zero failure code";
        const std::string name = n == 3 ? w[2] : std::string();
        if (!name.empty() && !knownCommandName(name)) return "error: unknown command " + name;
        camera.failNext(name, int32_t(i));
        return "ok next " + (name.empty() ? std::string("call") : name) + " fails with " + w[1];
    }
    if (cmd == "address" && n == 2) {
        if (!camera.changeAddress(w[1])) return "error: not a usable address: " + w[1];
        return "ok moving to " + w[1];
    }
    if (cmd == "firmware" && n >= 2) {
        const std::string& what = w[1];
        if ((what == "fail" || what == "stall") && n == 3) {
            if (!toDouble(w[2], d) || d < 0 || d > 100) return "error: the share must be 0..100 %";
            if (what == "fail")
                camera.loseFirmwareUpdateAt(d);
            else
                camera.stallFirmwareUpdateAt(d);
            return "ok the next firmware update " + std::string(what == "fail" ? "is lost" : "stalls") + " at " + w[2] +
                   " %";
        }
        if (what == "badflash" && n == 2) {
            camera.failNextFlashWrite();
            return "ok the next firmware write fails its verification";
        }
        if (what == "clear" && n == 2) {
            camera.clearFirmwareFaults();
            return "ok no firmware faults";
        }
    }
    if (cmd == "trigger" && n == 1) {
        camera.hardwareTrigger();
        return "ok";
    }
    return "error: unknown or malformed command: " + line + " (try help)";
}

// --- the listening socket

struct FaultControlServer::Impl {
    explicit Impl(CameraServer& c) : camera(c) {}

    struct Client : std::enable_shared_from_this<Client> {
        Client(Impl& o, asio::ip::tcp::socket s) : owner(o), socket(std::move(s)) {}
        void read() {
            auto self = shared_from_this();
            asio::async_read_until(socket, asio::dynamic_buffer(buffer, kMaxLine), '\n',
                                   [this, self](const asio::error_code& ec, size_t n) {
                                       if (ec) return close();  // end of input, or a line far too long
                                       std::string line = buffer.substr(0, n - 1);
                                       buffer.erase(0, n);
                                       if (!line.empty() && line.back() == '\r') line.pop_back();
                                       answer = runFaultCommand(owner.camera, line) + "\n";
                                       asio::async_write(socket, asio::buffer(answer),
                                                         [this, self](const asio::error_code& e, size_t) {
                                                             if (e) return close();
                                                             read();
                                                         });
                                   });
        }
        void close() {
            asio::error_code ec;
            socket.close(ec);
            owner.clients.erase(shared_from_this());
        }
        Impl& owner;
        asio::ip::tcp::socket socket;
        std::string buffer, answer;
    };

    void accept() {
        acceptor.async_accept([this](const asio::error_code& ec, asio::ip::tcp::socket s) {
            if (ec == asio::error::operation_aborted || !acceptor.is_open()) return;
            if (!ec) {
                closeOnExec(s.native_handle());
                auto c = std::make_shared<Client>(*this, std::move(s));
                clients.insert(c);
                c->read();
            }
            accept();
        });
    }

    CameraServer& camera;
    asio::io_context io;
    asio::ip::tcp::acceptor acceptor{io};
    std::set<std::shared_ptr<Client>> clients;
    std::thread thread;
    uint16_t port = 0;
};

FaultControlServer::FaultControlServer(CameraServer& camera) : impl_(std::make_unique<Impl>(camera)) {}

FaultControlServer::~FaultControlServer() { stop(); }

bool FaultControlServer::start(const std::string& address, uint16_t port, std::string& error) {
    Impl& d = *impl_;
    asio::error_code ec;
    const auto ip = asio::ip::make_address_v4(address, ec);
    if (!ec) d.acceptor.open(asio::ip::tcp::v4(), ec);
    if (!ec) closeOnExec(d.acceptor.native_handle());
    if (!ec) d.acceptor.set_option(asio::socket_base::reuse_address(true), ec);
    if (!ec) d.acceptor.bind(asio::ip::tcp::endpoint(ip, port), ec);
    if (!ec) d.acceptor.listen(8, ec);
    if (ec) {
        error = "control socket " + address + ":" + std::to_string(port) + ": " + ec.message();
        d.acceptor.close(ec);
        return false;
    }
    d.port = d.acceptor.local_endpoint().port();
    d.accept();
    d.thread = std::thread([&d] { d.io.run(); });
    return true;
}

void FaultControlServer::stop() {
    Impl& d = *impl_;
    if (!d.thread.joinable()) return;
    asio::post(d.io, [&d] {
        asio::error_code ec;
        d.acceptor.close(ec);
        auto all = d.clients;
        for (const auto& c : all) c->close();
    });
    d.thread.join();
}

uint16_t FaultControlServer::port() const { return impl_->port; }

std::string sendFaultCommand(const std::string& address, uint16_t port, const std::string& line, int timeoutMs) {
    asio::io_context io;
    asio::ip::tcp::socket socket(io);
    asio::error_code ec;
    const auto ip = asio::ip::make_address_v4(address, ec);
    if (ec) return "error: bad address " + address;
    std::string answer, request = line + "\n";
    std::string failure = "error: no answer from " + address + ":" + std::to_string(port);
    socket.async_connect(asio::ip::tcp::endpoint(ip, port), [&](const asio::error_code& e) {
        if (e) {
            failure = "error: cannot reach " + address + ":" + std::to_string(port) + ": " + e.message();
            return;
        }
        asio::async_write(socket, asio::buffer(request), [&](const asio::error_code& we, size_t) {
            if (we) return;
            asio::async_read_until(socket, asio::dynamic_buffer(answer, kMaxLine), '\n',
                                   [&](const asio::error_code&, size_t) {});
        });
    });
    io.run_for(std::chrono::milliseconds(timeoutMs));
    const auto end = answer.find('\n');
    if (end == std::string::npos) return failure;
    return answer.substr(0, end);
}

}  // namespace d3sim
