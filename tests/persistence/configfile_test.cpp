// The "config" file: its 31 keys as other programs read them, what a broken
// or partial file reads as, the name an import accepts, and the copy helper.
#include "configfile.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <climits>

#include "sampleconfig.h"

namespace {

QByteArray readAll(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void writeText(const QString& path, const QByteArray& text) {
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(text);
}

TEST(ConfigFile, HasExactlyTheThirtyOneKeysOfTheFormat) {
    const QJsonObject o = ConfigFile::toJson(distinctConfig());
    QStringList keys = o.keys();
    keys.sort();
    QStringList expected{"Trigger_mode",
                         "IR_val",
                         "Min_color_map_val",
                         "Max_color_map_val",
                         "Exposure_setting_auto",
                         "Hdr_model",
                         "Exposure_time",
                         "Spatial_filtering",
                         "Time_filtering",
                         "Confidence_filtering",
                         "Fly_filtering",
                         "Is_Time_filtering",
                         "Is_Confidence_filtering",
                         "Is_Fly_filtering",
                         "DepShow",
                         "IRShow",
                         "CPShow",
                         "RgbShow",
                         "fps_setting",
                         "fast_mode",
                         "rgb2dep",
                         "dep2rgb",
                         "rgb2pointcloud",
                         "rgbManual",
                         "rgbExposureTime",
                         "rgbBrightness",
                         "rgbContrast",
                         "spaticalFiltering",
                         "hardDelayms",
                         "hardDelayus",
                         "tofFrequency"};
    expected.sort();
    EXPECT_EQ(keys, expected);
    EXPECT_EQ(o.value("spaticalFiltering").toInt(), 1);
    EXPECT_TRUE(o.value("Hdr_model").isBool());
    EXPECT_TRUE(o.value("hardDelayus").isDouble());
}

TEST(ConfigFile, WrittenFileIsIndentedJsonThatReadsBackTheSame) {
    QTemporaryDir dir;
    const QString path = dir.filePath("config");
    ASSERT_TRUE(ConfigFile::write(path, distinctConfig()));
    const QByteArray text = readAll(path);
    EXPECT_EQ(text, QJsonDocument(ConfigFile::toJson(distinctConfig())).toJson(QJsonDocument::Indented));
    EXPECT_TRUE(text.startsWith("{\n    \""));
    const ConfigFile::ReadResult back = ConfigFile::read(path);
    EXPECT_EQ(back.status, ConfigFile::ReadResult::Read);
    EXPECT_TRUE(back.config == distinctConfig());
}

TEST(ConfigFile, MissingKeysAndWrongTypesReadAsZeroOrFalse) {
    QTemporaryDir dir;
    const QString path = dir.filePath("config");
    writeText(path, R"({"IR_val": "77", "Hdr_model": 1, "fps_setting": 12, "DepShow": true, "Trigger_mode": 2.0})");
    const ConfigFile::ReadResult r = ConfigFile::read(path);
    ASSERT_EQ(r.status, ConfigFile::ReadResult::Read);
    EXPECT_EQ(r.config.irGamma, 0);
    EXPECT_FALSE(r.config.hdr);
    EXPECT_EQ(r.config.fps, 12);
    EXPECT_TRUE(r.config.depShow);
    EXPECT_EQ(r.config.triggerMode, 2);
    EXPECT_EQ(r.config.exposureTime, 0);
}

TEST(ConfigFile, BrokenTextStillReadsAndAppliesZeroEverywhere) {
    QTemporaryDir dir;
    const QString path = dir.filePath("config");
    writeText(path, "{\"IR_val\": 77, \"fps_setting\": ");
    const ConfigFile::ReadResult r = ConfigFile::read(path);
    EXPECT_EQ(r.status, ConfigFile::ReadResult::Read);
    EXPECT_NE(r.jsonError, 0);
    EXPECT_TRUE(r.config == PanelConfig());
    EXPECT_EQ(ConfigFile::read(dir.filePath("missing")).status, ConfigFile::ReadResult::CannotOpen);
}

// What a user may hand the import instead of a configuration file. Nothing
// of it stops the import or crashes: each reads the way the format says.
TEST(ConfigFile, HugeValuesWrongTypesTruncatedAndBinaryContentReadAsTheFormatSays) {
    // Numbers an int cannot hold read as 0; the ints at the ends of its
    // range are passed on unchanged (the panel and the camera judge them).
    ConfigFile::ReadResult r = ConfigFile::parse(R"({"IR_val": 1e300, "fps_setting": 3000000000,
        "Exposure_time": -2147483648, "hardDelayms": 2147483647, "Trigger_mode": 1.5, "hardDelayus": -1e-300,
        "DepShow": "true", "IRShow": 1, "CPShow": null, "RgbShow": {"a": true}, "fast_mode": [true]})");
    ASSERT_EQ(r.status, ConfigFile::ReadResult::Read);
    EXPECT_EQ(r.config.irGamma, 0);
    EXPECT_EQ(r.config.fps, 0);
    EXPECT_EQ(r.config.exposureTime, INT_MIN);
    EXPECT_EQ(r.config.hardDelayMs, INT_MAX);
    EXPECT_EQ(r.config.triggerMode, 0);
    EXPECT_EQ(r.config.hardDelayUs, 0);
    EXPECT_FALSE(r.config.depShow || r.config.irShow || r.config.cpShow || r.config.rgbShow || r.config.fastMode);

    // Not an object, binary, invalid UTF-8, nesting far deeper than any
    // parser should follow: every setting 0/false.
    QByteArray binary(4096, '\0');
    for (int i = 0; i < binary.size(); ++i) binary[i] = char((i * 7919) >> 3);
    const QByteArray notConfigs[] = {"[1, 2, 3]",
                                     "42",
                                     "\"config\"",
                                     "null",
                                     "",
                                     QByteArray(64, '\0'),
                                     binary,
                                     "{\"IR_val\": \"\xff\xfe\x80\"}garbage",
                                     QByteArray(200000, '['),
                                     QByteArray(200000, '{')};
    for (const QByteArray& text : notConfigs) {
        r = ConfigFile::parse(text);
        EXPECT_EQ(r.status, ConfigFile::ReadResult::Read) << text.left(20).toHex().constData();
        EXPECT_TRUE(r.config == PanelConfig()) << text.left(20).toHex().constData();
    }

    // Cut anywhere: all or nothing of the file is applied, never a part.
    const QByteArray whole = ConfigFile::bytes(distinctConfig());
    for (int n = 0; n <= whole.size(); ++n) {
        r = ConfigFile::parse(whole.left(n));
        ASSERT_EQ(r.status, ConfigFile::ReadResult::Read) << n;
        ASSERT_TRUE(r.config == PanelConfig() || r.config == distinctConfig()) << n;
    }
    EXPECT_TRUE(r.config == distinctConfig());
}

TEST(ConfigFile, OnlyAFileNamedConfigIsImported) {
    EXPECT_TRUE(ConfigFile::hasConfigName("/home/u/config"));
    EXPECT_TRUE(ConfigFile::hasConfigName("config"));
    for (const char* path : {"/home/u/Config", "/home/u/config.json", "/home/u/myconfig", "/home/u/config/",
                             "/home/u/CONFIG", "/config/other"})
        EXPECT_FALSE(ConfigFile::hasConfigName(path)) << path;
}

TEST(ConfigFile, CopyMakesTheFolderAndReplacesTheTarget) {
    QTemporaryDir dir;
    const QString source = dir.filePath("source");
    QByteArray big(20000, 'x');
    big[19999] = 'y';
    writeText(source, big);
    const QString target = dir.filePath("a/b/config");
    ASSERT_TRUE(ConfigFile::copyFile(source, target));
    EXPECT_EQ(readAll(target), big);
    writeText(source, "short");
    ASSERT_TRUE(ConfigFile::copyFile(source, target));
    EXPECT_EQ(readAll(target), QByteArray("short"));
    EXPECT_FALSE(ConfigFile::copyFile(dir.filePath("missing"), target));
}

}  // namespace
