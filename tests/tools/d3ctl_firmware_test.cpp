// d3ctl firmware-image and firmware-info as processes: the images they make
// are what the parser accepts, and bad input gets a reason and a failing exit.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "childprocess.h"
#include "d3_protocol/Firmware.h"

namespace fs = std::filesystem;
using d3proto::Json;
using tooltest::ChildResult;

namespace {

ChildResult d3ctl(const std::vector<std::string>& args) { return tooltest::runChild(D3CTL, args); }

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::vector<uint8_t> readFile(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

struct Folder {
    fs::path path = fs::temp_directory_path() / ("d3ctlfw-" + std::to_string(::getpid()));
    Folder() { fs::create_directories(path); }
    ~Folder() { fs::remove_all(path); }
};

}  // namespace

TEST(D3ctlFirmware, MakesImagesThatCheckOutAndShowsTheirHeaders) {
    Folder dir;
    const std::string small = (dir.path / "small.bin").string();
    ChildResult r = d3ctl({"firmware-image", "--version", "1.5.0", "--model", "1", "--size", "5000", "--out", small});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    d3proto::FirmwareCheck c = d3proto::checkFirmwareImage(readFile(small));
    ASSERT_TRUE(c.ok()) << c.reason;
    EXPECT_EQ(c.header.version, "1.5.0");
    EXPECT_EQ(c.header.model, '1');
    EXPECT_EQ(c.header.payloadLength, 5000u);

    // Defaults: model 3 and the default payload; --json before the subcommand.
    const std::string plain = (dir.path / "plain.bin").string();
    r = d3ctl({"--json", "firmware-image", "--version", "2.0", "--out", plain});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    Json j = Json::parse(r.out, nullptr, false);
    EXPECT_EQ(j.value("size", 0u), d3proto::kFirmwareHeaderSize + d3proto::kDefaultFirmwarePayload) << r.out;
    c = d3proto::checkFirmwareImage(readFile(plain));
    ASSERT_TRUE(c.ok()) << c.reason;
    EXPECT_EQ(c.header.model, '3');

    // --json after the subcommand works as well.
    r = d3ctl({"firmware-info", small, "--json"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    j = Json::parse(r.out, nullptr, false);
    EXPECT_TRUE(j.value("valid", false)) << r.out;
    EXPECT_EQ(j.value("version", ""), "1.5.0");
    EXPECT_EQ(j.value("model", ""), "1");
    EXPECT_EQ(j.value("payloadLength", 0), 5000);
    EXPECT_EQ(j.value("magic", ""), "D3FW");
}

TEST(D3ctlFirmware, BadInputGetsAReasonAndAFailingExit) {
    Folder dir;
    const std::string out = (dir.path / "x.bin").string();
    const struct {
        std::vector<std::string> args;
        const char* reason;
    } refused[] = {
        {{"firmware-image", "--version", "1 5", "--out", out}, "blank"},
        {{"firmware-image", "--version", "1.5", "--model", "7", "--out", out}, "model"},
        {{"firmware-image", "--version", "1.5", "--size", "0", "--out", out}, "payload size"},
        {{"firmware-image", "--version", "1.5", "--out", (dir.path / "no" / "x.bin").string()}, "cannot write"},
        {{"firmware-info", (dir.path / "missing.bin").string()}, "cannot read"},
    };
    for (const auto& k : refused) {
        const ChildResult r = d3ctl(k.args);
        EXPECT_NE(r.exitCode, 0) << k.args[2];
        EXPECT_TRUE(contains(r.err, k.reason)) << r.err;
    }
    EXPECT_FALSE(fs::exists(out));

    // A damaged image: its header is still shown, with why it is not valid.
    ASSERT_EQ(d3ctl({"firmware-image", "--version", "1.5", "--size", "100", "--out", out}).exitCode, 0);
    {
        std::fstream f(out, std::ios::in | std::ios::out | std::ios::binary);
        f.seekp(100);
        f.put('!');
    }
    const ChildResult r = d3ctl({"--json", "firmware-info", out});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(contains(r.err, "payload is damaged")) << r.err;
    const Json j = Json::parse(r.out, nullptr, false);
    EXPECT_FALSE(j.value("valid", true)) << r.out;
    EXPECT_EQ(j.value("version", ""), "1.5");
    EXPECT_TRUE(contains(j.value("reason", ""), "payload is damaged"));
}
