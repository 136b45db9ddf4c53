// Without libFuzzer, a fuzz target replays files: each argument is a file or
// a folder of files, and every one is handed to the target once. A crash or
// a sanitizer report fails the run; the seeds are the regression set.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

static bool replay(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return false;
    }
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return true;
}

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE_OR_FOLDER...\n", argv[0]);
        return 2;
    }
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        const fs::path arg(argv[i]);
        std::vector<fs::path> files;
        if (fs::is_directory(arg)) {
            for (const auto& e : fs::directory_iterator(arg))
                if (e.is_regular_file()) files.push_back(e.path());
        } else {
            files.push_back(arg);
        }
        for (const fs::path& f : files) {
            if (!replay(f)) return 1;
            ++count;
        }
    }
    if (count == 0) {
        std::fprintf(stderr, "no inputs\n");
        return 1;
    }
    std::printf("%zu inputs replayed\n", count);
    return 0;
}
