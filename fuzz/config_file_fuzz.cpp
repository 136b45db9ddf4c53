// The configuration file a user imports: any bytes at all. Reading never
// fails outright (text that does not parse applies 0/false), and what it
// read writes back as a file that reads the same.
#include <QByteArray>

#include "configfile.h"
#include "fuzzinput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ConfigFile::ReadResult r =
        ConfigFile::parse(QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size)));
    if (r.status != ConfigFile::ReadResult::Read) return 0;
    const ConfigFile::ReadResult again = ConfigFile::parse(ConfigFile::bytes(r.config));
    d3fuzz::check(again.status == ConfigFile::ReadResult::Read && again.config == r.config);
    return 0;
}
