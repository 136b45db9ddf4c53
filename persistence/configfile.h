// The "config" file: the panel's 31 settings as one flat JSON object, which
// other programs read and write too. Key names (misspellings included) are
// the format. A missing key or a value of the wrong type reads as 0/false.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include "panelconfig.h"

namespace ConfigFile {

// The only name an imported file may have.
inline const QString kFileName = QStringLiteral("config");

QJsonObject toJson(const PanelConfig& config);
PanelConfig fromJson(const QJsonObject& object);
// The file's bytes: the object in the JSON library's indented form.
QByteArray bytes(const PanelConfig& config);

// The working copy every export and import goes through.
QString workingCopyPath();

// Writes `config` to `path` (UTF-8); false when the file cannot be opened.
bool write(const QString& path, const PanelConfig& config);

struct ReadResult {
    enum Status {
        Read,        // config holds the file's settings (all 0/false for unparsable text)
        CannotOpen,  // the file could not be opened
        JsonError,   // the parser reported an error yet produced a document
    } status = CannotOpen;
    PanelConfig config;
    int jsonError = 0;
};
// Reads `path`. Text that does not parse yields an empty object, so every
// setting reads as 0/false and the result still counts as read: only an
// error with a non-null document stops an import.
ReadResult read(const QString& path);
// The same for a file's bytes (UTF-8; invalid sequences read as U+FFFD).
ReadResult parse(const QByteArray& fileBytes);

// Copies in blocks, creating the destination's folder and replacing an
// existing destination; false when either file cannot be opened.
bool copyFile(const QString& source, const QString& destination);

// True when the file part of `path` (after its last '/') is exactly "config".
bool hasConfigName(const QString& path);

}  // namespace ConfigFile
