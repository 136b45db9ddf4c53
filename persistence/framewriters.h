// The files a captured frame is written to, with the bytes other programs
// read: PNG of the pictures as shown, CSV of the raw values, planar YUV of
// the colour picture. (Point clouds go to PLY through the SDK.) Each writer
// returns false when the file could not be written and then says why in
// `reason`, if given.
#pragma once

#include <QByteArray>
#include <QImage>
#include <QString>
#include <cstdint>

#include "framerecords.h"

namespace FrameFiles {

// Fixed names; the time stamp is in the folder's name. "RGB.png" and
// "Rgb.png" are different files on purpose.
inline const QString kIrPng = QStringLiteral("IR.png");
inline const QString kIrCsv = QStringLiteral("IR.csv");
inline const QString kDepthPng = QStringLiteral("Depth.png");
inline const QString kDepthCsv = QStringLiteral("Depth.csv");
inline const QString kRgbPng = QStringLiteral("Rgb.png");
inline const QString kRgbYuv = QStringLiteral("Rgb.yuv");
inline const QString kRgbCsv = QStringLiteral("Rgb.csv");
inline const QString kRgbUpperPng = QStringLiteral("RGB.png");
inline const QString kCloudPly = QStringLiteral("PointCloud.ply");
inline const QString kCloudCsv = QStringLiteral("PointCloud.csv");

// Folder and name joined with a forward slash.
inline QString path(const QString& folder, const QString& name) { return folder + '/' + name; }

// Folder and file names carry the local time as "yyyyMMddhhmmsszzz".
QString timeStamp();

}  // namespace FrameFiles

// Raw values row by row, "v, v, ..., v\n", no header. The file is opened
// without truncation: an existing longer file keeps its old tail.
bool writeValueCsv(const QString& path, const uint8_t* values, unsigned rows, unsigned cols, QString* reason = nullptr);
bool writeValueCsv(const QString& path, const uint16_t* values, unsigned rows, unsigned cols,
                   QString* reason = nullptr);
// The text the CSV writers write.
QByteArray valueCsv(const uint8_t* values, unsigned rows, unsigned cols);
QByteArray valueCsv(const uint16_t* values, unsigned rows, unsigned cols);

// "x, y, z\n" per point, each in the shortest form with six significant
// digits; opened like the value CSV.
bool writePointCsv(const QString& path, const PointXYZ* points, unsigned count, QString* reason = nullptr);
QByteArray pointCsv(const PointXYZ* points, unsigned count);

// Planar YUV 4:2:0 (I420) of the picture, no header: Y for every pixel, U and
// V from the top-left pixel of every 2 x 2 block (no averaging), each value
// truncated to an integer and kept to its low 8 bits. The file is opened
// twice and written through the second handle; if only the second open
// fails, a line goes to standard error and the call still succeeds.
bool saveYUYV(const QImage& image, const QString& filename, QString* reason = nullptr);
QByteArray yuvI420(const QImage& image);

// The picture as shown, PNG at the default compression.
bool writePng(const QImage& image, const QString& path, QString* reason = nullptr);
