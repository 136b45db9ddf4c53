#include "framefileslots.h"

#include "framewriters.h"
#include "recorder.h"

FrameFileSlots::FrameFileSlots(Recorder& recorder, PictureSource pictures, QObject* parent)
    : QObject(parent), recorder_(recorder), pictures_(std::move(pictures)) {}

template <typename T>
void FrameFileSlots::saveValues(const DataContainer<T>& data, dataType type) {
    QString csv, png;
    switch (type) {
        case DATA_TYPE_IR:
            csv = FrameFiles::kIrCsv;
            png = FrameFiles::kIrPng;
            break;
        case DATA_TYPE_RGB:
            csv = FrameFiles::kRgbCsv;
            png = FrameFiles::kRgbPng;
            break;
        case DATA_TYPE_DEPTH:
            csv = FrameFiles::kDepthCsv;
            png = FrameFiles::kDepthPng;
            break;
        default:
            return;
    }
    const QString folder = recorder_.singleSaveFolder();
    writeValueCsv(FrameFiles::path(folder, csv), data.data(), data.rows(), data.cols());
    writePng(pictures_(type), FrameFiles::path(folder, png));
}

void FrameFileSlots::saveData2File(GrayscaleData Data, dataType type) { saveValues(Data, type); }

void FrameFileSlots::saveData2File(DistanceData Data, dataType type) { saveValues(Data, type); }

void FrameFileSlots::saveData2File(PointcloudData Data, dataType) {
    writePointCsv(FrameFiles::path(recorder_.singleSaveFolder(), FrameFiles::kCloudCsv), Data.data(),
                  Data.getNumberSize());
}

void FrameFileSlots::saveData2File(RgbImageData, dataType) {
    writePng(pictures_(DATA_TYPE_RGB), FrameFiles::path(recorder_.singleSaveFolder(), FrameFiles::kRgbUpperPng));
}

bool FrameFileSlots::saveYUYV(QImage image, QString filename) { return ::saveYUYV(image, filename); }
