// The configuration file a user imports: any bytes at all. Reading never
// fails outright (text that does not parse applies 0/false), and what it
// read writes back as a file that reads the same.
#include <QByteArray>

#include "configfile.h"
#include "fuzzinput.h"

// Qt 5.15's JSON parser keeps the last of two equal keys in an object and
// never frees the earlier value when that is an array or an object (about
// 100 bytes a read; corpus/config_file/duplicate_keys). Qt is built without
// frame pointers, so such a block's stack ends at its first Qt frame and only
// the module can be named: this program passes over blocks allocated inside
// Qt. A block our code allocates keeps our frames and is still reported.
// LeakSanitizer reads this on its own; other builds never call it.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libQt5Core.so\n"; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ConfigFile::ReadResult r =
        ConfigFile::parse(QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size)));
    if (r.status != ConfigFile::ReadResult::Read) return 0;
    const ConfigFile::ReadResult again = ConfigFile::parse(ConfigFile::bytes(r.config));
    d3fuzz::check(again.status == ConfigFile::ReadResult::Read && again.config == r.config);
    return 0;
}
