// Datagrams on the UDP stream port, both ways: frame chunks the SDK takes in,
// and hellos and resend requests the camera takes in.
#include "d3_protocol/Udp.h"
#include "fuzzinput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    d3proto::UdpKind kind;
    if (!d3proto::peekUdpKind(data, size, kind)) return 0;
    d3proto::UdpDataHeader h;
    const uint8_t* chunk = nullptr;
    size_t chunkSize = 0;
    if (d3proto::decodeUdpData(data, size, h, chunk, chunkSize)) {
        // The receiver copies the chunk to packetId * kUdpChunk in a buffer of
        // frameBytes: that must stay inside both the datagram and the frame.
        d3fuzz::check(h.packetId < h.packetCount);
        d3fuzz::check(h.packetCount == d3proto::udpPacketCount(h.frameBytes));
        d3fuzz::check(chunk >= data && chunk + chunkSize <= data + size);
        d3fuzz::check(size_t(h.packetId) * d3proto::kUdpChunk + chunkSize <= h.frameBytes);
    }
    d3proto::UdpResend resend;
    if (d3proto::decodeUdpResend(data, size, resend)) {
        d3fuzz::check(!resend.ranges.empty() && resend.ranges.size() <= d3proto::kMaxResendRanges);
        for (const d3proto::PacketRange& r : resend.ranges) d3fuzz::check(r.first <= r.last);
        // What the camera would send back for it encodes again.
        std::vector<uint8_t> again;
        d3proto::encodeUdpResend(resend, again);
        d3proto::UdpResend twice;
        d3fuzz::check(d3proto::decodeUdpResend(again.data(), again.size(), twice));
    }
    uint32_t token = 0;
    d3proto::decodeUdpHello(data, size, token);
    return 0;
}
