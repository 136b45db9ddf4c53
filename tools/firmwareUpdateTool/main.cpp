// firmwareUpdateTool-v1.0.3: updates a camera's firmware; see --help.
#include <cstdio>

#include "UpdateTool.h"

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    fwtool::Arguments a;
    std::string error;
    if (!fwtool::parseArguments(args, a, error)) {
        std::fprintf(stderr, "firmwareUpdateTool: %s (see --help)\n", error.c_str());
        return fwtool::kUsage;
    }
    if (a.help) {
        std::fputs(fwtool::helpText().c_str(), stdout);
        return fwtool::kOk;
    }
    return fwtool::run(a, stdout, stderr);
}
