#include "panelrules.h"

#include <algorithm>
#include <climits>

namespace PanelRules {

ExposureLimits exposureLimits(const FrameRateLimits& map, int fps) {
    if (map.isEmpty()) return {0, 0};
    const int lowest = *std::min_element(map.keyBegin(), map.keyEnd());
    const int highest = *std::max_element(map.keyBegin(), map.keyEnd());
    const int row = std::clamp(fps, lowest, highest);
    const QPair<int, int> limits = map.value(row);
    return {limits.first, limits.second};
}

int saturatingInt(double v) {
    if (!(v == v)) return 0;  // NaN
    return static_cast<int>(std::clamp(v, double(INT_MIN), double(INT_MAX)));
}

float kernelSize(int v) { return static_cast<float>(2.0 * v + 1.0); }

int timeEditorValue(float kernel) { return saturatingInt((double(kernel) - 1) * 0.5); }

int spatialComboIndex(float kernel) {
    const int index = saturatingInt((double(kernel) - 1) * 0.5 - 1);
    return std::clamp(index, 0, 2);
}

float spatialKernelForCheckBox(const QString& comboText) { return comboText == QLatin1String("1") ? 3.0f : 5.0f; }

int frameRateForEditor(int fps) { return (fps == 25 || fps == 30) ? 20 : fps; }

int exposureForEditor(int us) { return us == 0 ? 6 : us; }

bool isFastModeExposure(int us) { return us == 0; }

QString filterLogText(bool enable, float value) {
    return QString::number(enable ? 1 : 0) + ' ' + QString::number(static_cast<double>(value));
}

}  // namespace PanelRules
