// A deliberately small blocking client for the camera protocol, written from
// the protocol description rather than sharing the SDK, so the server is
// checked against the wire format itself.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "d3_protocol/Commands.h"
#include "d3_protocol/Message.h"
#include "d3_protocol/Payloads.h"

namespace d3test {

struct Reply {
    bool ok = false;  // a message arrived in time
    d3proto::Header header;
    d3proto::Json body;
    std::vector<uint8_t> payload;
    int32_t status() const { return header.status; }
};

class RawClient {
public:
    RawClient() = default;
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool connect(const std::string& ip, uint16_t port);
    void close();
    bool connected() const { return fd_ >= 0; }

    bool sendRaw(const std::vector<uint8_t>& bytes);
    bool send(d3proto::Command cmd, const d3proto::Json& args, uint32_t requestId);
    // Next message of any kind, or ok=false on timeout / closed connection.
    Reply read(int timeoutMs = 2000);
    // Sends with a fresh request id and waits for its reply.
    Reply call(d3proto::Command cmd, const d3proto::Json& args = d3proto::Json::object(), int timeoutMs = 2000);
    // The same with a payload that is not JSON (FirmwareChunk).
    Reply callBytes(d3proto::Command cmd, const std::vector<uint8_t>& payload, int timeoutMs = 2000);
    // True when bytes (or the peer's close) are waiting to be read right now.
    bool pending() const;
    // True when the peer closed the connection within the timeout.
    bool waitClosed(int timeoutMs);

    // OpenSession with the given client id; returns the token or 0.
    uint32_t open(const std::string& client);

private:
    bool readExact(uint8_t* out, size_t n, int timeoutMs);
    int fd_ = -1;
    uint32_t nextId_ = 1;
};

// Broadcasts Discover to 127.255.255.255:port and collects the answers.
std::vector<d3proto::DeviceInfo> discover(uint16_t port, int timeoutMs = 300);

}  // namespace d3test
