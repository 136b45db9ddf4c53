#include "configfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QTextStream>
#include <iterator>

namespace {

// Keys as the format spells them; "spaticalFiltering" included.
struct IntKey {
    const char* name;
    int PanelConfig::*field;
};
struct BoolKey {
    const char* name;
    bool PanelConfig::*field;
};

const IntKey kIntKeys[] = {
    {"Trigger_mode", &PanelConfig::triggerMode},
    {"IR_val", &PanelConfig::irGamma},
    {"Min_color_map_val", &PanelConfig::minColorMap},
    {"Max_color_map_val", &PanelConfig::maxColorMap},
    {"Exposure_time", &PanelConfig::exposureTime},
    {"Time_filtering", &PanelConfig::timeFilter},
    {"Confidence_filtering", &PanelConfig::confidenceFilter},
    {"Fly_filtering", &PanelConfig::flyFilter},
    {"fps_setting", &PanelConfig::fps},
    {"rgbExposureTime", &PanelConfig::rgbExposureTime},
    {"rgbBrightness", &PanelConfig::rgbBrightness},
    {"rgbContrast", &PanelConfig::rgbContrast},
    {"spaticalFiltering", &PanelConfig::spatialIndex},
    {"hardDelayms", &PanelConfig::hardDelayMs},
    {"hardDelayus", &PanelConfig::hardDelayUs},
};

const BoolKey kBoolKeys[] = {
    {"Exposure_setting_auto", &PanelConfig::autoExposure},
    {"Hdr_model", &PanelConfig::hdr},
    {"Spatial_filtering", &PanelConfig::spatialFilter},
    {"Is_Time_filtering", &PanelConfig::timeFilterOn},
    {"Is_Confidence_filtering", &PanelConfig::confidenceFilterOn},
    {"Is_Fly_filtering", &PanelConfig::flyFilterOn},
    {"DepShow", &PanelConfig::depShow},
    {"IRShow", &PanelConfig::irShow},
    {"CPShow", &PanelConfig::cpShow},
    {"RgbShow", &PanelConfig::rgbShow},
    {"fast_mode", &PanelConfig::fastMode},
    {"rgb2dep", &PanelConfig::rgb2dep},
    {"dep2rgb", &PanelConfig::dep2rgb},
    {"rgb2pointcloud", &PanelConfig::rgb2pointcloud},
    {"rgbManual", &PanelConfig::rgbManual},
    {"tofFrequency", &PanelConfig::tofFrequency},
};

static_assert(std::size(kIntKeys) + std::size(kBoolKeys) == 31, "the file has 31 keys");

constexpr qint64 kCopyBlock = 8192;

}  // namespace

bool PanelConfig::operator==(const PanelConfig& o) const {
    for (const IntKey& k : kIntKeys)
        if (this->*k.field != o.*k.field) return false;
    for (const BoolKey& k : kBoolKeys)
        if (this->*k.field != o.*k.field) return false;
    return true;
}

namespace ConfigFile {

QJsonObject toJson(const PanelConfig& config) {
    QJsonObject object;
    for (const IntKey& k : kIntKeys) object.insert(QLatin1String(k.name), config.*k.field);
    for (const BoolKey& k : kBoolKeys) object.insert(QLatin1String(k.name), config.*k.field);
    return object;
}

PanelConfig fromJson(const QJsonObject& object) {
    PanelConfig config;
    for (const IntKey& k : kIntKeys) config.*k.field = object.value(QLatin1String(k.name)).toInt(0);
    for (const BoolKey& k : kBoolKeys) config.*k.field = object.value(QLatin1String(k.name)).toBool(false);
    return config;
}

QByteArray bytes(const PanelConfig& config) { return QJsonDocument(toJson(config)).toJson(); }

QString workingCopyPath() { return QDir::currentPath() + "/" + kFileName; }

bool write(const QString& path, const PanelConfig& config) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) return false;
    QTextStream out(&file);
    out.setCodec("UTF-8");
    out << bytes(config);
    out.flush();
    return file.error() == QFileDevice::NoError;
}

ReadResult read(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return ReadResult{};
    return parse(file.readAll());
}

ReadResult parse(const QByteArray& fileBytes) {
    ReadResult result;
    QTextStream in(fileBytes, QIODevice::ReadOnly);
    in.setCodec("UTF-8");
    const QString text = in.readAll();
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    result.jsonError = int(error.error);
    // A text that does not parse gives a null document; only an error with a
    // document stops the import, so a broken file applies 0/false throughout.
    if (error.error != QJsonParseError::NoError && !document.isNull()) {
        result.status = ReadResult::JsonError;
        return result;
    }
    result.status = ReadResult::Read;
    result.config = fromJson(document.object());
    return result;
}

bool copyFile(const QString& source, const QString& destination) {
    QFile in(source);
    if (!in.exists() || !in.open(QIODevice::ReadOnly)) return false;
    if (QFile::exists(destination)) QFile::remove(destination);
    QDir().mkpath(QFileInfo(destination).absolutePath());
    QFile out(destination);
    if (!out.open(QIODevice::WriteOnly)) return false;
    while (!in.atEnd()) {
        const QByteArray block = in.read(kCopyBlock);
        if (out.write(block) != block.size()) return false;
    }
    return true;
}

bool hasConfigName(const QString& path) { return path.mid(path.lastIndexOf('/') + 1) == kFileName; }

}  // namespace ConfigFile
