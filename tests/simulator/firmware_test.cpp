// The camera's firmware endpoint on the wire: the access word, one update at
// a time beside an open session, chunk rules, verification of the whole
// image, what erase, write and reboot each do, and the firmware faults.
// Address block 127.0.110.x, discovery port 48810.
#include "d3_protocol/Firmware.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "FaultControl.h"
#include "SimulatedCameras.h"
#include "rawclient.h"

using d3proto::Command;
using d3proto::Json;
using d3test::RawClient;
using d3test::Reply;
using namespace d3sim;
namespace st = d3proto::status;

namespace {

constexpr uint16_t kDiscoveryPort = 48810;
constexpr const char* kWord = "qm-tbrwkex";

struct TempDir {
    std::filesystem::path path;
    TempDir() {
        static int counter = 0;
        path = std::filesystem::temp_directory_path() /
               ("d3fw-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
        std::filesystem::create_directories(path);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
};

ServerConfig config(int host, const std::string& stateDir = "") {
    ServerConfig c;
    c.address = "127.0.110." + std::to_string(host);
    c.model = '3';
    c.stateDir = stateDir;
    c.discoveryPort = kDiscoveryPort;
    c.rebootMs = 300;
    c.flashEraseMs = 20;
    c.flashWriteMs = 50;
    return c;
}

std::vector<uint8_t> makeImage(const std::string& version = "1.5.0", char model = '3', uint32_t payload = 150000) {
    std::vector<uint8_t> img;
    std::string error;
    EXPECT_TRUE(d3proto::makeFirmwareImage(version, model, payload, img, error)) << error;
    return img;
}

// One update connection, as a client of the wire format.
struct Update {
    RawClient c;
    explicit Update(const CameraServer& cam) { EXPECT_TRUE(c.connect(cam.config().address, cam.config().controlPort)); }

    size_t announced = 0;

    Reply begin(size_t size, bool erase = true, const std::string& word = kWord) {
        announced = size;
        return c.call(Command::FirmwareBegin, {{"accessWord", word}, {"size", size}, {"erase", erase}});
    }
    Reply chunk(uint32_t offset, const uint8_t* data, size_t n, int timeoutMs = 2000) {
        std::vector<uint8_t> wire;
        d3proto::encodeFirmwareChunk(offset, data, n, wire);
        return c.callBytes(Command::FirmwareChunk, wire, timeoutMs);
    }
    // Sends `img` in 64 KiB chunks; the first reply that is not a success, or the last one.
    Reply send(const std::vector<uint8_t>& img) {
        Reply r;
        for (size_t off = 0; off < img.size(); off += d3proto::kMaxFirmwareChunk) {
            const size_t n = std::min(d3proto::kMaxFirmwareChunk, img.size() - off);
            r = chunk(uint32_t(off), img.data() + off, n);
            if (!r.ok || r.status() != st::kSuccess) return r;
            EXPECT_EQ(r.body.value("received", 0u), off + n);
            EXPECT_EQ(r.body.value("size", 0u), announced);
        }
        return r;
    }
    Reply commit(bool write, bool reboot) {
        return c.call(Command::FirmwareCommit, {{"write", write}, {"reboot", reboot}});
    }
};

std::string deviceFirmware(const CameraServer& cam) {
    RawClient c;
    if (!c.connect(cam.config().address, cam.config().controlPort)) return "unreachable";
    const Reply r = c.call(Command::GetDeviceInfo);
    return r.ok ? r.body.value("firmwareVersion", std::string("?")) : "no answer";
}

std::string discoveredFirmware(const CameraServer& cam) {
    for (const auto& d : d3test::discover(kDiscoveryPort, 300))
        if (d.serial == cam.serial()) return d.firmwareVersion;
    return "not found";
}

// Begin, once a client that hung up has been noticed (its update may hold
// the slot until the camera has read the hang-up).
Reply beginOnceFree(Update& u, size_t size) {
    Reply r;
    for (int i = 0; i < 100; ++i) {
        r = u.begin(size);
        if (r.status() != st::kBusy) break;
    }
    return r;
}

// Waits until the camera's command log has an entry named `name` whose
// arguments contain `text`.
bool waitForLog(CameraServer& cam, const std::string& name, const std::string& text) {
    for (int i = 0; i < 400; ++i) {
        for (const auto& e : cam.camera().commandLog())
            if (e.name == name && e.args.find(text) != std::string::npos) return true;
        deviceFirmware(cam);  // a round trip: the camera has moved on meanwhile
    }
    return false;
}

// Whether the camera rebooted: its reboot count after one more round trip on
// a fresh connection, which the camera serves after any reboot it queued.
uint64_t reboots(CameraServer& cam) {
    deviceFirmware(cam);
    return cam.stats().reboots;
}

}  // namespace

TEST(FirmwareEndpoint, UpdateBesideAnOpenSessionRebootsIntoTheNewVersionAndKeepsIt) {
    TempDir dir;
    const auto img = makeImage("1.5.0", '3', 200000);
    std::string serial;
    {
        CameraServer cam(config(2, dir.path.string()));
        ASSERT_TRUE(cam.start()) << cam.lastError();
        serial = cam.serial();
        EXPECT_EQ(discoveredFirmware(cam), "1.4.2");
        // An application holds the camera, stopped.
        RawClient session;
        ASSERT_TRUE(session.connect(cam.config().address, cam.config().controlPort));
        ASSERT_NE(session.open("viewer"), 0u);

        Update u(cam);
        const Reply begun = u.begin(img.size());
        ASSERT_EQ(begun.status(), st::kSuccess) << begun.body.dump();
        EXPECT_EQ(begun.body.value("received", -1), 0);
        EXPECT_EQ(begun.body.value("maxChunk", 0u), d3proto::kMaxFirmwareChunk);
        ASSERT_EQ(u.send(img).status(), st::kSuccess);
        const Reply done = u.commit(true, true);
        ASSERT_EQ(done.status(), st::kSuccess) << done.body.dump();
        EXPECT_EQ(done.body.value("version", ""), "1.5.0");
        EXPECT_TRUE(done.body.value("written", false));
        EXPECT_TRUE(done.body.value("rebooting", false));

        // The reboot ends the session like any other, and the camera returns with the new version.
        EXPECT_TRUE(session.waitClosed(3000));
        ASSERT_TRUE(cam.waitUntilUp(3000));
        EXPECT_EQ(discoveredFirmware(cam), "1.5.0");
        EXPECT_EQ(deviceFirmware(cam), "1.5.0");
        EXPECT_EQ(cam.stats().reboots, 1u);
    }
    std::ifstream stored(dir.path / serial / "firmware.json");
    EXPECT_EQ(Json::parse(stored, nullptr, false).value("version", ""), "1.5.0");

    // Power off and on with the same state folder: still the new firmware.
    CameraServer again(config(2, dir.path.string()));
    ASSERT_TRUE(again.start()) << again.lastError();
    EXPECT_EQ(deviceFirmware(again), "1.5.0");
}

TEST(FirmwareEndpoint, EraseWriteAndRebootEachChangeWhatHappens) {
    CameraServer cam(config(3));
    ASSERT_TRUE(cam.start()) << cam.lastError();
    const auto img = makeImage("2.0.0");
    Update u(cam);

    // Neither write nor reboot: the camera only checks the image.
    ASSERT_EQ(u.begin(img.size(), false).status(), st::kSuccess);
    ASSERT_EQ(u.send(img).status(), st::kSuccess);
    Reply r = u.commit(false, false);
    ASSERT_EQ(r.status(), st::kSuccess) << r.body.dump();
    EXPECT_FALSE(r.body.value("written", true));
    EXPECT_EQ(r.body.value("version", ""), "2.0.0");

    // A write needs an erased slot; after power-up it holds the previous image.
    ASSERT_EQ(u.begin(img.size(), false).status(), st::kSuccess);
    ASSERT_EQ(u.send(img).status(), st::kSuccess);
    r = u.commit(true, false);
    EXPECT_EQ(r.status(), 17) << r.body.dump();
    EXPECT_NE(r.body.value("error", "").find("erase"), std::string::npos);
    EXPECT_EQ(cam.camera().installedFirmware(), "1.4.2");

    // Written without a reboot: installed, but the camera runs the old one until it restarts.
    ASSERT_EQ(u.begin(img.size(), true).status(), st::kSuccess);
    EXPECT_TRUE(cam.camera().updateSlotErased());
    ASSERT_EQ(u.send(img).status(), st::kSuccess);
    r = u.commit(true, false);
    ASSERT_EQ(r.status(), st::kSuccess) << r.body.dump();
    EXPECT_TRUE(r.body.value("written", false));
    EXPECT_FALSE(r.body.value("rebooting", true));
    EXPECT_FALSE(cam.camera().updateSlotErased());  // the slot now holds the image
    EXPECT_EQ(deviceFirmware(cam), "1.4.2");
    EXPECT_EQ(cam.camera().installedFirmware(), "2.0.0");
    EXPECT_EQ(reboots(cam), 0u);
    cam.kill();
    ASSERT_TRUE(cam.restart()) << cam.lastError();
    EXPECT_EQ(deviceFirmware(cam), "2.0.0");

    // A reboot without a write restarts into the firmware that was there.
    const auto next = makeImage("2.1.0");
    Update v(cam);
    ASSERT_EQ(v.begin(next.size(), true).status(), st::kSuccess);
    ASSERT_EQ(v.send(next).status(), st::kSuccess);
    r = v.commit(false, true);
    ASSERT_EQ(r.status(), st::kSuccess) << r.body.dump();
    EXPECT_TRUE(v.c.waitClosed(3000));
    ASSERT_TRUE(cam.waitUntilUp(3000));
    EXPECT_EQ(deviceFirmware(cam), "2.0.0");
    EXPECT_EQ(cam.stats().reboots, 1u);
}

TEST(FirmwareEndpoint, BeginNeedsTheWordASizeAStoppedCameraAndNoOtherUpdate) {
    ServerConfig cfg = config(4);
    cfg.accessWord = "another-word";
    CameraServer cam(cfg);
    ASSERT_TRUE(cam.start()) << cam.lastError();
    Update u(cam);
    Reply r = u.begin(1000, true, kWord);
    EXPECT_EQ(r.status(), st::kAccessDenied);
    EXPECT_EQ(r.body.value("error", ""), "wrong access word");
    EXPECT_EQ(u.begin(1000, true, "").status(), st::kAccessDenied);
    EXPECT_EQ(u.c.call(Command::FirmwareBegin, {{"accessWord", "another-word"}, {"size", "1000"}}).status(),
              st::kProtocolError);
    for (int64_t size : {int64_t(0), int64_t(64), int64_t(d3proto::kMaxFirmwareImage) + 1, int64_t(-5)})
        EXPECT_EQ(u.c.call(Command::FirmwareBegin, {{"accessWord", "another-word"}, {"size", size}}).status(),
                  st::kInvalidParameter)
            << size;

    // Streaming: refused; stopped but with the session still open: accepted.
    RawClient session;
    ASSERT_TRUE(session.connect(cfg.address, cfg.controlPort));
    ASSERT_NE(session.open("viewer"), 0u);
    ASSERT_EQ(session.call(Command::StartStream).status(), st::kSuccess);
    EXPECT_EQ(u.begin(1000, true, "another-word").status(), st::kRefusedWhileStreaming);
    ASSERT_EQ(session.call(Command::StopStream).status(), st::kSuccess);
    ASSERT_EQ(u.begin(1000, true, "another-word").status(), st::kSuccess);

    // One update at a time; meanwhile the camera does not start streaming.
    Update second(cam);
    r = second.begin(1000, true, "another-word");
    EXPECT_EQ(r.status(), st::kBusy);
    EXPECT_NE(r.body.value("error", "").find("another firmware update"), std::string::npos);
    EXPECT_EQ(session.call(Command::StartStream).status(), st::kBusy);
    // The first client hanging up frees the camera.
    u.c.close();
    Reply freed;
    for (int i = 0; i < 100 && freed.status() != st::kSuccess; ++i) freed = second.begin(1000, true, "another-word");
    EXPECT_EQ(freed.status(), st::kSuccess) << freed.body.dump();
}

TEST(FirmwareEndpoint, ChunksArriveInOrderWithTheirChecksums) {
    CameraServer cam(config(5));
    ASSERT_TRUE(cam.start()) << cam.lastError();
    const auto img = makeImage("1.5.0", '3', 100000);
    Update u(cam);
    // Chunks belong to an update begun on the same connection.
    EXPECT_EQ(u.chunk(0, img.data(), 100).status(), st::kNotConnected);
    EXPECT_EQ(u.commit(true, true).status(), st::kNotConnected);
    ASSERT_EQ(u.begin(img.size()).status(), st::kSuccess);

    Reply r = u.chunk(100, img.data() + 100, 100);
    EXPECT_EQ(r.status(), st::kInvalidParameter);
    EXPECT_NE(r.body.value("error", "").find("expected the chunk at offset 0"), std::string::npos);
    std::vector<uint8_t> wire;
    d3proto::encodeFirmwareChunk(0, img.data(), 1000, wire);
    wire[500] ^= 0x10;
    EXPECT_EQ(u.c.callBytes(Command::FirmwareChunk, wire).status(), st::kProtocolError);
    EXPECT_EQ(u.c.callBytes(Command::FirmwareChunk, {1, 2, 3}).status(), st::kProtocolError);
    const std::vector<uint8_t> big(d3proto::kMaxFirmwareChunk + 1, 7);
    EXPECT_EQ(u.chunk(0, big.data(), big.size()).status(), st::kInvalidParameter);

    // Refused chunks changed nothing: the update goes on from offset 0.
    r = u.chunk(0, img.data(), 1000);
    ASSERT_EQ(r.status(), st::kSuccess);
    EXPECT_EQ(r.body.value("received", 0), 1000);
    // A chunk may not run past the size the update announced.
    ASSERT_EQ(u.begin(2000).status(), st::kSuccess);
    ASSERT_EQ(u.chunk(0, img.data(), 1000).status(), st::kSuccess);
    r = u.chunk(1000, img.data() + 1000, 1001);
    EXPECT_EQ(r.status(), st::kInvalidParameter);
    EXPECT_NE(r.body.value("error", "").find("runs past the announced 2000 bytes"), std::string::npos);
}

TEST(FirmwareEndpoint, TheWholeImageIsVerifiedBeforeAnythingIsWritten) {
    CameraServer cam(config(6));
    ASSERT_TRUE(cam.start()) << cam.lastError();
    struct Case {
        const char* what;
        std::vector<uint8_t> image;
        size_t announced;
        const char* inReason;
    };
    auto corrupt = makeImage();
    corrupt[5000] ^= 0x01;
    auto cut = makeImage();
    cut.resize(cut.size() - 10);
    const std::vector<Case> cases = {
        {"another model", makeImage("1.5.0", '1'), 0, "for model 1 (KX-120); this camera is model 3 (KX-120RGB)"},
        {"corrupt", corrupt, 0, "payload is damaged"},
        {"fewer bytes than announced", makeImage(), makeImage().size() + 100, "have arrived"},
        {"truncated image", cut, 0, "truncated"},
        {"not an image", std::vector<uint8_t>(5000, 0x42), 0, "not a firmware image"},
    };
    for (const Case& k : cases) {
        Update u(cam);
        ASSERT_EQ(u.begin(k.announced ? k.announced : k.image.size()).status(), st::kSuccess) << k.what;
        ASSERT_EQ(u.send(k.image).status(), st::kSuccess) << k.what;
        const Reply r = u.commit(true, true);
        EXPECT_EQ(r.status(), st::kFirmwareRejected) << k.what;
        EXPECT_NE(r.body.value("error", "").find(k.inReason), std::string::npos) << k.what << ": " << r.body.dump();
        // The update is over; the connection stays.
        EXPECT_EQ(u.commit(true, true).status(), st::kNotConnected) << k.what;
    }
    EXPECT_EQ(reboots(cam), 0u);
    EXPECT_EQ(cam.camera().installedFirmware(), "1.4.2");
}

TEST(FirmwareEndpoint, FaultsLoseOrStallTheTransferOrSpoilTheWrite) {
    CameraServer cam(config(7));
    ASSERT_TRUE(cam.start()) << cam.lastError();
    const auto img = makeImage("1.5.0", '3', 300000);  // 5 chunks of 64 KiB

    // Lost once 50 % have arrived: the third chunk (up to 65 %) is not answered and the line drops.
    EXPECT_EQ(runFaultCommand(cam, "firmware fail 50"), "ok the next firmware update is lost at 50 %");
    EXPECT_NE(runFaultCommand(cam, "status").find("firmwareFaults=lose@50%"), std::string::npos);
    {
        Update u(cam);
        ASSERT_EQ(u.begin(img.size()).status(), st::kSuccess);
        const size_t k = d3proto::kMaxFirmwareChunk;
        ASSERT_EQ(u.chunk(0, img.data(), k).status(), st::kSuccess);
        ASSERT_EQ(u.chunk(uint32_t(k), img.data() + k, k).status(), st::kSuccess);
        EXPECT_FALSE(u.chunk(uint32_t(2 * k), img.data() + 2 * k, k).ok);
        EXPECT_TRUE(u.c.waitClosed(2000));
    }
    EXPECT_NE(runFaultCommand(cam, "status").find("firmwareFaults=none"), std::string::npos);

    // Stalled from 0 %: the first chunk is never answered, the connection stays
    // open and keeps the update slot; the rest of the camera answers.
    EXPECT_EQ(runFaultCommand(cam, "firmware stall 0"), "ok the next firmware update stalls at 0 %");
    {
        Update u(cam);
        ASSERT_EQ(u.begin(img.size()).status(), st::kSuccess);
        std::vector<uint8_t> wire;
        d3proto::encodeFirmwareChunk(0, img.data(), 1000, wire);
        ASSERT_TRUE(u.c.sendRaw(d3proto::makeMessage(d3proto::MessageType::Request, uint16_t(Command::FirmwareChunk),
                                                     77, 0, std::string(wire.begin(), wire.end()))));
        ASSERT_TRUE(waitForLog(cam, "FirmwareChunk", "stall"));
        // A reply would have been sent when the chunk was handled, before the log entry.
        EXPECT_FALSE(u.c.pending());
        EXPECT_EQ(deviceFirmware(cam), "1.4.2");
        // Still holding the update: the connection is open.
        Update other(cam);
        EXPECT_EQ(other.begin(img.size()).status(), st::kBusy);
    }

    // A bad flash: everything arrives and verifies, the write does not take.
    EXPECT_EQ(runFaultCommand(cam, "firmware badflash"), "ok the next firmware write fails its verification");
    Update u(cam);
    Reply r = beginOnceFree(u, img.size());
    ASSERT_EQ(r.status(), st::kSuccess);
    ASSERT_EQ(u.send(img).status(), st::kSuccess);
    r = u.commit(true, true);
    EXPECT_EQ(r.status(), 16);
    EXPECT_NE(r.body.value("error", "").find("keeps firmware 1.4.2"), std::string::npos) << r.body.dump();
    EXPECT_EQ(reboots(cam), 0u);

    // Each fault was used up; the next update goes through.
    ASSERT_EQ(u.begin(img.size()).status(), st::kSuccess);
    ASSERT_EQ(u.send(img).status(), st::kSuccess);
    EXPECT_EQ(u.commit(true, false).status(), st::kSuccess);
    EXPECT_EQ(cam.camera().installedFirmware(), "1.5.0");

    for (const char* bad : {"firmware fail 101", "firmware stall -1", "firmware fail x", "firmware badflash 3",
                            "firmware", "firmware explode"})
        EXPECT_EQ(runFaultCommand(cam, bad).rfind("error:", 0), 0u) << bad;
    cam.stallFirmwareUpdateAt(10);
    cam.failNextFlashWrite();
    EXPECT_NE(runFaultCommand(cam, "status").find("firmwareFaults=stall@10%,badflash"), std::string::npos);
    EXPECT_EQ(runFaultCommand(cam, "firmware clear"), "ok no firmware faults");
    EXPECT_EQ(cam.firmwareFaults(), "none");
}

TEST(FirmwareEndpoint, AnUpdateWhoseClientFallsSilentIsAbandoned) {
    ServerConfig cfg = config(8);
    cfg.firmwareIdleTimeoutMs = 300;
    CameraServer cam(cfg);
    ASSERT_TRUE(cam.start()) << cam.lastError();
    Update silent(cam);
    ASSERT_EQ(silent.begin(5000).status(), st::kSuccess);
    EXPECT_TRUE(silent.c.waitClosed(3000));
    Update next(cam);
    EXPECT_EQ(next.begin(5000).status(), st::kSuccess);
}
