// The per-type frame writers other programs call by name (they are slots):
// each writes one record and its picture into the folder of the last single
// save, on the thread that calls it. Saving from the window does not use
// them; the recorder writes the same formats.
#pragma once

#include <QImage>
#include <QObject>
#include <QString>
#include <functional>

#include "framerecords.h"

class Recorder;

class FrameFileSlots : public QObject {
    Q_OBJECT
public:
    // The picture a view shows now, for a stream (IR, colour or depth).
    using PictureSource = std::function<QImage(dataType)>;

    FrameFileSlots(Recorder& recorder, PictureSource pictures, QObject* parent = nullptr);

public slots:
    // "IR.csv" + "IR.png" for DATA_TYPE_IR, "Rgb.csv" + "Rgb.png" for
    // DATA_TYPE_RGB, "Depth.csv" + "Depth.png" for DATA_TYPE_DEPTH; any other
    // type writes nothing.
    void saveData2File(GrayscaleData Data, dataType type);
    void saveData2File(DistanceData Data, dataType type);
    // "PointCloud.csv"; the type is not looked at.
    void saveData2File(PointcloudData Data, dataType type = DATA_TYPE_IR);
    // The colour picture as "RGB.png" (upper case, beside "Rgb.png"); the
    // record and the type are not looked at.
    void saveData2File(RgbImageData Data, dataType type = DATA_TYPE_RGB);
    bool saveYUYV(QImage image, QString filename);

private:
    template <typename T>
    void saveValues(const DataContainer<T>& data, dataType type);

    Recorder& recorder_;
    PictureSource pictures_;
};
