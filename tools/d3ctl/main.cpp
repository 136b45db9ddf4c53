// d3ctl: command-line client of the camera SDK.
#include <CLI/CLI.hpp>

#include "Output.h"
#include "Parameters.h"
#include "d3_protocol/Firmware.h"

int main(int argc, char** argv) {
    CLI::App app{"d3ctl - find, inspect, configure and stream d3 cameras"};
    app.footer(
        "DEVICE is a serial number, an IPv4 address or \"serial:ip\" as printed by 'list'.\n"
        "The discovery port can be overridden with D3_DISCOVERY_PORT, and D3_DISCOVERY_ADDRESSES\n"
        "(comma-separated) replaces the interfaces' broadcast addresses as search targets.\n\n" +
        d3ctl::parameterHelp());
    app.require_subcommand(1);
    // Options of the whole program may also follow the subcommand (d3ctl info X --json).
    app.fallthrough();
    d3ctl::Options opt;
    app.add_flag("--json", opt.json, "print results as JSON");
    app.add_option("--timeout", opt.timeoutMs, "milliseconds to wait for an answer or a frame")->capture_default_str();

    std::string device, name, value, dir;
    int frames = 1;
    double seconds = 5;
    bool udp = false;

    auto* list = app.add_subcommand("list", "search the network for cameras");
    auto* info = app.add_subcommand("info", "identity, addresses and calibration of a camera");
    info->add_option("DEVICE", device)->required();
    auto* get = app.add_subcommand("get", "read one parameter, or all");
    get->add_option("DEVICE", device)->required();
    get->add_option("NAME", name);
    auto* set = app.add_subcommand("set", "write a parameter and show what the camera took");
    set->add_option("DEVICE", device)->required();
    set->add_option("NAME", name)->required();
    set->add_option("VALUE", value)->required();
    auto* grab = app.add_subcommand("grab", "save frames: depth/IR/amplitude PGM, colour PPM, points PLY");
    grab->add_option("DEVICE", device)->required();
    grab->add_option("--frames,-n", frames, "number of frames")->capture_default_str()->check(CLI::PositiveNumber);
    grab->add_option("--out,-o", dir, "output folder")->required();
    grab->add_flag("--udp", udp, "use the UDP stream transport");
    auto* stats = app.add_subcommand("stats", "stream and report frame rate, throughput, drops, latency");
    stats->add_option("DEVICE", device)->required();
    stats->add_option("--seconds,-s", seconds, "how long to stream")->capture_default_str()->check(CLI::PositiveNumber);
    stats->add_flag("--udp", udp, "use the UDP stream transport");
    stats->add_flag("--reconnect", opt.reconnect,
                    "when the camera is lost, reconnect and restart the stream until it is back, and report how "
                    "long that took");

    std::string address, netmask, gateway;
    bool wait = false;
    auto* store = app.add_subcommand("store", "store the camera's current settings in the camera");
    store->add_option("DEVICE", device)->required();
    auto* resetConfig =
        app.add_subcommand("reset-config", "delete the settings stored in the camera; the camera reboots");
    resetConfig->add_option("DEVICE", device)->required();
    resetConfig->add_flag("--wait", wait, "wait until the camera answers again");
    auto* factoryReset =
        app.add_subcommand("factory-reset", "restore factory settings (the address is kept); the camera reboots");
    factoryReset->add_option("DEVICE", device)->required();
    factoryReset->add_flag("--wait", wait, "wait until the camera answers again");
    auto* ip = app.add_subcommand("ip", "give the camera a new address, or DHCP; it reboots onto it");
    ip->add_option("DEVICE", device)->required();
    ip->add_option("ADDRESS", address, "dotted IPv4 address, or dhcp")->required();
    ip->add_option("--netmask", netmask, "network mask (default: the camera's current one)");
    ip->add_option("--gateway", gateway, "gateway (default: keep the camera's)");
    ip->add_flag("--wait", wait, "wait until the camera answers at its new address");

    std::string fwVersion, fwModel = "3", fwFile;
    uint64_t fwSize = d3proto::kDefaultFirmwarePayload;
    auto* fwImage = app.add_subcommand("firmware-image", "make a firmware image for firmwareUpdateTool");
    fwImage->add_option("--version", fwVersion, "the firmware version it carries, e.g. 1.5.0")->required();
    fwImage->add_option("--model", fwModel, "the camera model digit it is for (0..4)")->capture_default_str();
    fwImage->add_option("--size", fwSize, "payload bytes (1..16777216)")->capture_default_str();
    fwImage->add_option("--out,-o", fwFile, "the file to write")->required();
    auto* fwInfo = app.add_subcommand("firmware-info", "show a firmware image's header and whether it is valid");
    fwInfo->add_option("FILE", fwFile)->required();

    CLI11_PARSE(app, argc, argv);
    if (list->parsed()) return d3ctl::cmdList(opt);
    if (info->parsed()) return d3ctl::cmdInfo(opt, device);
    if (get->parsed()) return d3ctl::cmdGet(opt, device, name);
    if (set->parsed()) return d3ctl::cmdSet(opt, device, name, value);
    if (grab->parsed()) return d3ctl::cmdGrab(opt, device, frames, dir, udp);
    if (stats->parsed()) return d3ctl::cmdStats(opt, device, seconds, udp);
    if (store->parsed()) return d3ctl::cmdStore(opt, device);
    if (resetConfig->parsed()) return d3ctl::cmdResetConfig(opt, device, wait);
    if (factoryReset->parsed()) return d3ctl::cmdFactoryReset(opt, device, wait);
    if (fwImage->parsed()) return d3ctl::cmdFirmwareImage(opt, fwVersion, fwModel, fwSize, fwFile);
    if (fwInfo->parsed()) return d3ctl::cmdFirmwareInfo(opt, fwFile);
    if (ip->parsed()) return d3ctl::cmdIp(opt, device, address, netmask, gateway, wait);
    return 2;
}
