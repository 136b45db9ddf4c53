// The camera parameters d3ctl can read and write, by name.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "d3_sdk/DeviceManager.h"

namespace d3ctl {

struct Parameter {
    const char* name;
    const char* values;  // accepted values, for --help
    bool rgbOnly;
    // Null when the camera offers no getter (fast mode) or setter.
    ReturnCode (*get)(DeviceManager&, nlohmann::json&);
    ReturnCode (*set)(DeviceManager&, const std::string&);
};

const std::vector<Parameter>& parameters();
const Parameter* findParameter(const std::string& name);
std::string parameterHelp();

// Parses "on"/"off"/"true"/"false"/"1"/"0"; false when it is none of those.
bool parseBool(const std::string& text, bool& out);
bool parseInt(const std::string& text, int& out);

}  // namespace d3ctl
