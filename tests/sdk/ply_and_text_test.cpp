#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "d3_sdk/DeviceManager.h"

namespace {

std::string tempPath(const char* name) { return testing::TempDir() + "/" + name; }

struct Ply {
    std::string format;
    size_t vertices = 0;
    std::vector<std::string> properties;
    std::string body;
};

// A minimal reader following the PLY header grammar, to check what readers see.
Ply readPly(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    Ply ply;
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "ply");
    while (std::getline(in, line) && line != "end_header") {
        std::istringstream ls(line);
        std::string word;
        ls >> word;
        if (word == "format") ls >> ply.format;
        if (word == "element") {
            std::string what;
            ls >> what >> ply.vertices;
            EXPECT_EQ(what, "vertex");
        }
        if (word == "property") {
            std::string type, name;
            ls >> type >> name;
            ply.properties.push_back(type + " " + name);
        }
    }
    std::ostringstream rest;
    rest << in.rdbuf();
    ply.body = rest.str();
    return ply;
}

DataContainer<PointXYZ> sampleCloud() {
    DataContainer<PointXYZ> c(2, 3);
    const PointXYZ pts[6] = {{1.5f, -2.25f, 1000}, {0, 0, 0}, {-3, 4, 2500.5f}, {9, 9, 0}, {0.125f, 1, 1}, {5, 5, -1}};
    std::memcpy(c.data(), pts, sizeof pts);
    return c;
}

}  // namespace

TEST(PlyExport, BinaryHoldsOnlyMeasuredPointsLittleEndian) {
    auto cloud = sampleCloud();
    const std::string path = tempPath("points.ply");
    ASSERT_TRUE(DeviceManager::SaveAsPLYFile(path, cloud, true));
    const Ply ply = readPly(path);
    EXPECT_EQ(ply.format, "binary_little_endian");
    EXPECT_EQ(ply.vertices, 3u);
    EXPECT_EQ(ply.properties, (std::vector<std::string>{"float x", "float y", "float z"}));
    ASSERT_EQ(ply.body.size(), 3u * 12u);
    float v[9];
    std::memcpy(v, ply.body.data(), sizeof v);  // the test host is little endian
    const float expected[9] = {1.5f, -2.25f, 1000, -3, 4, 2500.5f, 0.125f, 1, 1};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(v[i], expected[i]) << i;
}

TEST(PlyExport, AsciiColouredPointsRoundTrip) {
    DataContainer<PointXYZRGBI> cloud(1, 3);
    cloud.data()[0] = PointXYZRGBI{10, 20, 30, 255, 128, 0, 77};
    cloud.data()[1] = PointXYZRGBI{1, 1, 0, 1, 1, 1, 1};
    cloud.data()[2] = PointXYZRGBI{-1.25f, 2, 3000, 1, 2, 3, 4};
    const std::string path = tempPath("colour.ply");
    ASSERT_TRUE(DeviceManager::SaveAsPLYFile(path, cloud, false));
    const Ply ply = readPly(path);
    EXPECT_EQ(ply.format, "ascii");
    EXPECT_EQ(ply.vertices, 2u);
    EXPECT_EQ(ply.properties.size(), 7u);
    EXPECT_EQ(ply.properties[3], "uchar red");
    std::istringstream body(ply.body);
    float x, y, z;
    unsigned r, g, b, i;
    body >> x >> y >> z >> r >> g >> b >> i;
    EXPECT_EQ(x, 10);
    EXPECT_EQ(z, 30);
    EXPECT_EQ(r, 255u);
    EXPECT_EQ(g, 128u);
    EXPECT_EQ(i, 77u);
    body >> x >> y >> z >> r >> g >> b >> i;
    EXPECT_EQ(x, -1.25f);
    EXPECT_EQ(z, 3000);
    EXPECT_EQ(b, 3u);

    ASSERT_TRUE(DeviceManager::SaveAsPLYFile(path, cloud, true));
    const Ply bin = readPly(path);
    ASSERT_EQ(bin.body.size(), 2u * 16u);
    EXPECT_EQ(uint8_t(bin.body[12]), 255);
    EXPECT_EQ(uint8_t(bin.body[15]), 77);
}

TEST(PlyExport, FailsOnUnwritablePath) {
    auto cloud = sampleCloud();
    EXPECT_FALSE(DeviceManager::SaveAsPLYFile("/nonexistent-dir/x.ply", cloud, true));
}

TEST(ReturnCodeText, EveryCodeHasItsOwnText) {
    auto& dm = DeviceManager::GetInstance();
    const ReturnCode all[] = {SUCCESS,
                              FAILED,
                              INVALID_PARAMETER,
                              TIMEOUT,
                              DEVICE_BUSY,
                              NOT_CONNECTED,
                              NOT_SUPPORTED,
                              FILE_ERROR,
                              FIRMWARE_REJECTED,
                              ACCESS_DENIED,
                              PROTOCOL_ERROR,
                              DEVICE_NOT_FOUND,
                              ALREADY_CONNECTED,
                              REFUSED_WHILE_STREAMING,
                              NETWORK_ERROR,
                              NOT_STREAMING,
                              TRIGGER_MODE_REFUSED,
                              INIT_NETWORK_FAILED,
                              INIT_FAILED};
    const std::string unknown = dm.GetReturnCodeDescriptor(ReturnCode(999));
    EXPECT_NE(unknown.find("999"), std::string::npos);
    std::set<std::string> seen;
    for (ReturnCode c : all) {
        const std::string text = dm.GetReturnCodeDescriptor(c);
        EXPECT_GT(text.size(), 5u) << c;
        EXPECT_EQ(text.find("Unknown"), std::string::npos) << c;
        EXPECT_TRUE(seen.insert(text).second) << "duplicate text for " << c;
    }
}
