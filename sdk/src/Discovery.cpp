#include "Discovery.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <asio.hpp>
#include <cstdlib>

#include "d3_protocol/Commands.h"
#include "d3_protocol/Message.h"

namespace d3sdk {

uint16_t discoveryPort() {
    if (const char* env = std::getenv(d3proto::kDiscoveryPortEnv)) {
        char* end = nullptr;
        const long v = std::strtol(env, &end, 10);
        if (end != env && *end == '\0' && v > 0 && v < 65536) return uint16_t(v);
    }
    return d3proto::kDefaultDiscoveryPort;
}

std::vector<std::string> broadcastAddresses() {
    const char* env = std::getenv("D3_DISCOVERY_ADDRESSES");
    if (!env || !*env) return interfaceBroadcastAddresses();
    std::vector<std::string> out;
    std::string list = env;
    size_t start = 0;
    while (start <= list.size()) {
        const size_t comma = std::min(list.find(',', start), list.size());
        const std::string item = list.substr(start, comma - start);
        uint32_t ip;
        if (d3proto::parseIpv4(item, ip)) out.push_back(item);
        start = comma + 1;
    }
    return out;
}

std::vector<std::string> interfaceBroadcastAddresses() {
    std::vector<std::string> out{"127.255.255.255"};
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return out;
    for (ifaddrs* i = list; i; i = i->ifa_next) {
        if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET) continue;
        if (!(i->ifa_flags & IFF_UP) || !(i->ifa_flags & IFF_BROADCAST) || !i->ifa_broadaddr) continue;
        char text[INET_ADDRSTRLEN];
        const auto* sin = reinterpret_cast<const sockaddr_in*>(i->ifa_broadaddr);
        if (!inet_ntop(AF_INET, &sin->sin_addr, text, sizeof text)) continue;
        if (std::find(out.begin(), out.end(), text) == out.end()) out.emplace_back(text);
    }
    freeifaddrs(list);
    return out;
}

std::vector<d3proto::DeviceInfo> discover(const std::vector<std::string>& targets, uint16_t port,
                                          std::chrono::milliseconds wait, size_t enough) {
    using asio::ip::udp;
    std::vector<d3proto::DeviceInfo> found;
    asio::io_context io;
    udp::socket sock(io);
    asio::error_code ec;
    sock.open(udp::v4(), ec);
    if (ec) return found;
    sock.set_option(asio::socket_base::broadcast(true), ec);

    const uint32_t requestId = uint32_t(std::chrono::steady_clock::now().time_since_epoch().count());
    const auto request =
        d3proto::makeMessage(d3proto::MessageType::Request, uint16_t(d3proto::Command::Discover), requestId, 0, "{}");
    for (const std::string& addr : targets) {
        const auto ip = asio::ip::make_address_v4(addr, ec);
        if (ec) continue;
        // A failing interface (e.g. no route) must not stop the others.
        sock.send_to(asio::buffer(request), udp::endpoint(ip, port), 0, ec);
    }

    std::vector<uint8_t> buf(d3proto::kMaxDatagram);
    udp::endpoint from;
    std::function<void()> receive = [&] {
        sock.async_receive_from(asio::buffer(buf), from, [&](const asio::error_code& err, size_t n) {
            if (err) return;
            d3proto::Message msg;
            d3proto::Json json;
            d3proto::DeviceInfo info;
            if (d3proto::decodeDatagram(buf.data(), n, msg) == d3proto::DecodeResult::Ok &&
                msg.header.type == d3proto::MessageType::Reply &&
                msg.header.command == uint16_t(d3proto::Command::Discover) && msg.header.status == 2 &&
                d3proto::parseJsonObject(msg.payload.data(), msg.payload.size(), json) &&
                d3proto::fromJson(json, info) && !info.serial.empty()) {
                // The address the answer came from is reachable; the one in
                // the payload may be stale or a DHCP placeholder.
                if (info.ip.empty()) info.ip = from.address().to_string();
                const bool known = std::any_of(found.begin(), found.end(),
                                               [&](const d3proto::DeviceInfo& d) { return d.serial == info.serial; });
                if (!known) found.push_back(std::move(info));
                if (enough && found.size() >= enough) return io.stop();
            }
            receive();
        });
    };
    receive();
    io.run_for(wait);
    return found;
}

}  // namespace d3sdk
