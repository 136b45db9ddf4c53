// Finding cameras by UDP broadcast.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "d3_protocol/Payloads.h"

namespace d3sdk {

// Discovery port: D3_DISCOVERY_PORT if set to a valid port, else the default.
uint16_t discoveryPort();

// Where searches go: the addresses listed in D3_DISCOVERY_ADDRESSES
// (comma-separated) when it is set, which keeps a search on a chosen network,
// e.g. the loopback only; otherwise the broadcast address of every IPv4
// interface that has one, plus the loopback's 127.255.255.255 (loopback has
// no broadcast flag, yet simulated cameras live there).
std::vector<std::string> broadcastAddresses();
std::vector<std::string> interfaceBroadcastAddresses();

// Sends one request to each address (broadcast or a camera's own) and
// collects answers until `wait` has passed, or as soon as `enough` cameras
// answered when it is non-zero. One entry per serial, in order of arrival.
std::vector<d3proto::DeviceInfo> discover(const std::vector<std::string>& targets, uint16_t port,
                                          std::chrono::milliseconds wait, size_t enough = 0);

}  // namespace d3sdk
