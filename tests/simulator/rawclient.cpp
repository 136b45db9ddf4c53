#include "rawclient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

namespace d3test {

using Clock = std::chrono::steady_clock;

RawClient::~RawClient() { close(); }

bool RawClient::connect(const std::string& ip, uint16_t port) {
    close();
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    inet_pton(AF_INET, ip.c_str(), &addr.sin_addr);
    if (::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        close();
        return false;
    }
    int one = 1;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    return true;
}

void RawClient::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

bool RawClient::sendRaw(const std::vector<uint8_t>& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n <= 0) return false;
        done += size_t(n);
    }
    return true;
}

bool RawClient::send(d3proto::Command cmd, const d3proto::Json& args, uint32_t requestId) {
    return sendRaw(d3proto::makeMessage(d3proto::MessageType::Request, uint16_t(cmd), requestId, 0,
                                        args.empty() ? std::string() : args.dump()));
}

bool RawClient::readExact(uint8_t* out, size_t n, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    size_t got = 0;
    while (got < n) {
        const int left = int(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count());
        if (left <= 0) return false;
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, left) <= 0) return false;
        const ssize_t r = ::recv(fd_, out + got, n - got, 0);
        if (r <= 0) return false;
        got += size_t(r);
    }
    return true;
}

Reply RawClient::read(int timeoutMs) {
    Reply r;
    if (fd_ < 0) return r;
    uint8_t header[d3proto::kHeaderSize];
    if (!readExact(header, sizeof header, timeoutMs)) return r;
    if (d3proto::decodeHeader(header, sizeof header, d3proto::kMaxStreamPayload, r.header) != d3proto::DecodeResult::Ok)
        return r;
    r.payload.resize(r.header.payloadLength);
    if (!readExact(r.payload.data(), r.payload.size(), timeoutMs)) return r;
    if (r.header.command != uint16_t(d3proto::Command::FrameEvent))
        d3proto::parseJsonObject(r.payload.data(), r.payload.size(), r.body);
    r.ok = true;
    return r;
}

Reply RawClient::call(d3proto::Command cmd, const d3proto::Json& args, int timeoutMs) {
    const uint32_t id = nextId_++;
    if (!send(cmd, args, id)) return {};
    Reply r = read(timeoutMs);
    if (r.ok && (r.header.requestId != id || r.header.type != d3proto::MessageType::Reply)) r.ok = false;
    return r;
}

Reply RawClient::callBytes(d3proto::Command cmd, const std::vector<uint8_t>& payload, int timeoutMs) {
    const uint32_t id = nextId_++;
    if (!sendRaw(d3proto::makeMessage(d3proto::MessageType::Request, uint16_t(cmd), id, 0,
                                      std::string(payload.begin(), payload.end()))))
        return {};
    Reply r = read(timeoutMs);
    if (r.ok && (r.header.requestId != id || r.header.type != d3proto::MessageType::Reply)) r.ok = false;
    return r;
}

bool RawClient::pending() const {
    pollfd p{fd_, POLLIN, 0};
    return fd_ >= 0 && ::poll(&p, 1, 0) > 0;
}

bool RawClient::waitClosed(int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    uint8_t buf[4096];
    while (Clock::now() < deadline) {
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, 50) <= 0) continue;
        if (::recv(fd_, buf, sizeof buf, 0) <= 0) return true;
    }
    return false;
}

uint32_t RawClient::open(const std::string& client) {
    Reply r = call(d3proto::Command::OpenSession, {{"client", client}, {"transport", "tcp"}});
    d3proto::SessionReply s;
    if (!r.ok || r.status() != d3proto::status::kSuccess || !d3proto::fromJson(r.body, s)) return 0;
    return s.token;
}

std::vector<d3proto::DeviceInfo> discover(uint16_t port, int timeoutMs) {
    std::vector<d3proto::DeviceInfo> found;
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &one, sizeof one);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    inet_pton(AF_INET, "127.255.255.255", &to.sin_addr);
    const auto req =
        d3proto::makeMessage(d3proto::MessageType::Request, uint16_t(d3proto::Command::Discover), 99, 0, "");
    sendto(fd, req.data(), req.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (true) {
        const int left = int(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count());
        if (left <= 0) break;
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, left) <= 0) break;
        uint8_t buf[2048];
        const ssize_t n = recv(fd, buf, sizeof buf, 0);
        d3proto::Message m;
        d3proto::Json j;
        d3proto::DeviceInfo info;
        if (n > 0 && d3proto::decodeDatagram(buf, size_t(n), m) == d3proto::DecodeResult::Ok &&
            m.header.requestId == 99 && d3proto::parseJsonObject(m.payload.data(), m.payload.size(), j) &&
            d3proto::fromJson(j, info))
            found.push_back(info);
    }
    ::close(fd);
    return found;
}

}  // namespace d3test
