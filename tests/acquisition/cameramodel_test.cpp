// The window-free session rules: the model a serial number names and the
// address shown for a device-list entry.
#include "cameramodel.h"

#include <gtest/gtest.h>

namespace {

std::string serialWithDigit(char digit) { return std::string("D3SIM-00") + digit + "001002"; }

}  // namespace

TEST(CameraModelFromSerial, EachModelDigitSelectsItsNameControlsAndLayout) {
    struct Row {
        char digit;
        const char* name;
        bool trigger, rgbLayout, rgbFrames;
    };
    const Row rows[] = {{'0', "KX-110", false, false, false},
                        {'1', "KX-120", true, false, false},
                        {'2', "KX-120W", true, false, false},
                        {'3', "KX-120RGB", true, true, true},
                        {'4', "KX-110RGB", true, true, true}};
    for (const Row& r : rows) {
        const CameraModel m = cameraModelFromSerial(serialWithDigit(r.digit));
        SCOPED_TRACE(r.digit);
        EXPECT_TRUE(m.known);
        EXPECT_EQ(m.name, QString(r.name));
        EXPECT_EQ(m.triggerControls, r.trigger);
        EXPECT_EQ(m.rgbLayout, r.rgbLayout);
        EXPECT_EQ(m.rgbFrames, r.rgbFrames);
    }
}

TEST(CameraModelFromSerial, OnlyTheNinthCharacterCounts) {
    // A '3' elsewhere must not make a colour camera of model 1.
    const CameraModel m = cameraModelFromSerial(
        "33333333"
        "1"
        "333");
    EXPECT_EQ(m.name, QString("KX-120"));
    EXPECT_FALSE(m.rgbFrames);
}

TEST(CameraModelFromSerial, UnknownDigitAndShortSerialsSelectNothing) {
    for (const std::string& serial : {serialWithDigit('5'), serialWithDigit('A'), std::string("D3SIM-00"),
                                      std::string("12345678"), std::string("1")}) {
        SCOPED_TRACE(serial);
        const CameraModel m = cameraModelFromSerial(serial);
        EXPECT_FALSE(m.known);
        EXPECT_EQ(m.name, QString("Unrecognized device"));
        EXPECT_FALSE(m.rgbLayout);
        EXPECT_FALSE(m.rgbFrames);
    }
    // Exactly nine characters is long enough.
    EXPECT_TRUE(cameraModelFromSerial("12345678"
                                      "4")
                    .known);
}

TEST(AddressFromDeviceText, TakesWhatFollowsTheLastColon) {
    EXPECT_EQ(addressFromDeviceText("D3SIM-003001002:127.0.90.2"), QString("127.0.90.2"));
    EXPECT_EQ(addressFromDeviceText("a:b:192.168.1.7"), QString("192.168.1.7"));
    EXPECT_EQ(addressFromDeviceText("192.168.1.7"), QString("192.168.1.7"));
    EXPECT_EQ(addressFromDeviceText("serial:"), QString());
    EXPECT_EQ(addressFromDeviceText(""), QString());
}
