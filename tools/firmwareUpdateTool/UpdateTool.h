// firmwareUpdateTool: the command line the viewer runs to update a camera's
// firmware, its exit codes and its output.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace fwtool {

// Printed on stdout once the camera is back running the image's version.
// The viewer searches its output for exactly this text, misspelling included.
constexpr const char* kSuccessMarker = "update successed!";

enum Exit : int {
    kOk = 0,
    kUsage = 2,            // bad or missing arguments
    kFileUnreadable = 3,   // the image file cannot be read
    kImageInvalid = 4,     // the file is not a valid image (checked before any camera is contacted)
    kCameraNotFound = 5,   // no camera answers to the device name
    kAccessDenied = 6,     // the camera refused the access word
    kCameraStreaming = 7,  // the camera is streaming
    kCameraBusy = 8,       // another update is in progress on the camera
    kCameraLost = 9,       // the camera dropped the connection mid-update
    kCameraSilent = 10,    // the camera stopped answering before its reboot
    kImageRejected = 11,   // the camera's verification rejected the image
    kWriteFailed = 12,     // writing into flash failed, or the update slot was not erased
    kCameraNotBack = 13,   // the camera did not answer a search after its reboot in time
    kWrongVersion = 14,    // the camera came back running another version
    kOtherFailure = 15,
};

struct Arguments {
    std::string file;
    std::string device;  // "serial:ip", an address or a serial
    std::string accessWord;
    bool erase = false;
    bool write = false;
    bool reboot = false;
    bool help = false;
    unsigned searchMs = 1500;
    unsigned replyTimeoutMs = 3000;
    unsigned flashTimeoutMs = 8000;
    unsigned rebootTimeoutMs = 15000;
};

// Options in any order; false with a reason for anything unknown, missing or malformed.
bool parseArguments(const std::vector<std::string>& args, Arguments& out, std::string& error);
std::string helpText();

// Runs the update; progress on `out`, failures on `err`. Returns the exit code.
int run(const Arguments& a, std::FILE* out, std::FILE* err);

}  // namespace fwtool
