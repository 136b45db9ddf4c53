// The "config" file: its 31 keys as other programs read them, what a broken
// or partial file reads as, the name an import accepts, and the copy helper.
#include "configfile.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>

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
