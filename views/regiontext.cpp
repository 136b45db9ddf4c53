#include "regiontext.h"

#include <QCoreApplication>

namespace {

QString number(double v) { return QString::number(v, 'f', 1); }

}  // namespace

QString regionStatsText(const FrameFigures& f) {
    const RegionStats& first = f.stats[0];
    QStringList lines;
    lines << QCoreApplication::translate("RegionStats", "%1x%2 像素").arg(f.region.width()).arg(f.region.height());
    if (f.channels == 3) {
        static const char* const kChannel[3] = {"R", "G", "B"};
        for (int c = 0; c < 3; ++c) {
            const RegionStats& s = f.stats[size_t(c)];
            lines << QStringLiteral("%1  ").arg(QLatin1String(kChannel[c])) +
                         QCoreApplication::translate("RegionStats", "均值 %1  标准差 %2")
                             .arg(number(s.mean), number(s.stddev)) +
                         QStringLiteral("  ") +
                         QCoreApplication::translate("RegionStats", "最小 %1  最大 %2").arg(s.min).arg(s.max);
        }
    } else if (first.valid == 0) {
        lines << QCoreApplication::translate("RegionStats", "无有效像素");
    } else {
        const QString unit = f.regionSource == RegionSource::Depth ? QStringLiteral(" mm") : QString();
        lines << QCoreApplication::translate("RegionStats", "均值 %1  标准差 %2")
                     .arg(number(first.mean) + unit, number(first.stddev) + unit);
        lines << QCoreApplication::translate("RegionStats", "最小 %1  最大 %2")
                     .arg(QString::number(first.min) + unit, QString::number(first.max) + unit);
    }
    lines << QCoreApplication::translate("RegionStats", "有效像素 %1%").arg(number(first.validShare() * 100.0));
    return lines.join('\n');
}
