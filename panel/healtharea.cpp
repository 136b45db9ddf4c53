#include "healtharea.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QVariant>

namespace {
const char* const kNames[] = {"transport", "received", "painted", "rate", "dropped", "datagrams", "latency"};
QString one(double v) { return QString::number(v, 'f', 1); }
}  // namespace

HealthArea::HealthArea(QWidget* parent) : QFrame(parent) {
    setObjectName(QStringLiteral("healthArea"));
    setStyleSheet(
        QStringLiteral("#healthArea{background-color:rgb(53,53,53);border-radius:8px;}"
                       "QLabel{color:#DCDCDC;font:9pt \"微软雅黑\";background:transparent;}"
                       "QLabel[role=\"value\"]{color:#FFFFFF;}"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(10, 4, 10, 4);
    layout->setSpacing(6);
    for (int i = 0; i < FigureCount; ++i) {
        captions_[size_t(i)] = new QLabel(this);
        values_[size_t(i)] = new QLabel(this);
        values_[size_t(i)]->setObjectName(QStringLiteral("health_") + QLatin1String(kNames[i]));
        values_[size_t(i)]->setProperty("role", QStringLiteral("value"));
        layout->addWidget(captions_[size_t(i)]);
        layout->addWidget(values_[size_t(i)]);
        if (i + 1 < FigureCount) layout->addSpacing(14);
    }
    layout->addStretch(1);
    retranslate();
}

void HealthArea::retranslate() {
    captions_[Transport]->setText(tr("传输"));
    captions_[Received]->setText(tr("接收"));
    captions_[Painted]->setText(tr("显示 深度/IR/RGB"));
    captions_[Rate]->setText(tr("数据率"));
    captions_[Dropped]->setText(tr("丢帧"));
    captions_[Datagrams]->setText(tr("数据包 丢失/重发请求/恢复"));
    captions_[Latency]->setText(tr("延迟 平均/最大"));
    showText();
}

QString HealthArea::valueText(const QString& name) const {
    for (int i = 0; i < FigureCount; ++i)
        if (name == QLatin1String(kNames[i])) return values_[size_t(i)]->text();
    return QString();
}

void HealthArea::showFigures(const HealthFigures& figures) {
    figures_ = figures;
    haveFigures_ = true;
    showText();
}

void HealthArea::clearFigures() {
    haveFigures_ = false;
    showText();
}

void HealthArea::showText() {
    if (!haveFigures_) {
        for (QLabel* v : values_) v->setText(QStringLiteral("-"));
        return;
    }
    const HealthFigures& f = figures_;
    values_[Transport]->setText(f.udp ? QStringLiteral("UDP") : QStringLiteral("TCP"));
    values_[Received]->setText(one(f.receivedFps) + QStringLiteral(" fps"));
    values_[Painted]->setText(
        QStringLiteral("%1/%2/%3 fps").arg(one(f.paintedFps[0]), one(f.paintedFps[1]), one(f.paintedFps[2])));
    values_[Rate]->setText(one(f.megabytesPerSecond) + QStringLiteral(" MB/s"));
    values_[Dropped]->setText(QString::number(f.framesDropped));
    // Over TCP the transport itself resends: there are no datagrams to count.
    // The share in brackets is the last second's.
    values_[Datagrams]->setText(f.udp ? QStringLiteral("%1/%2/%3 (%4%)")
                                            .arg(f.packetsLost)
                                            .arg(f.packetsResendRequested)
                                            .arg(f.packetsRecovered)
                                            .arg(one(f.lossShare * 100.0))
                                      : QStringLiteral("-"));
    values_[Latency]->setText(QStringLiteral("%1/%2 ms").arg(one(f.meanLatencyMs), one(f.maxLatencyMs)));
}
