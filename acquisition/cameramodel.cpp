#include "cameramodel.h"

namespace {
constexpr std::size_t kModelDigitIndex = 8;
}

CameraModel cameraModelFromSerial(const std::string& serial) {
    CameraModel model;
    model.name = QStringLiteral("Unrecognized device");
    if (serial.size() <= kModelDigitIndex) return model;
    // Tested in the order 0, 1, 3, 2, 4 as the model list grew.
    switch (serial[kModelDigitIndex]) {
        case '0':
            model = {true, QStringLiteral("KX-110"), false, false, false};
            break;
        case '1':
            model = {true, QStringLiteral("KX-120"), true, false, false};
            break;
        case '3':
            model = {true, QStringLiteral("KX-120RGB"), true, true, true};
            break;
        case '2':
            model = {true, QStringLiteral("KX-120W"), true, false, false};
            break;
        case '4':
            model = {true, QStringLiteral("KX-110RGB"), true, true, true};
            break;
        default:
            break;
    }
    return model;
}

QString addressFromDeviceText(const QString& text) { return text.mid(text.lastIndexOf(':') + 1); }
