// The views that show more than the frames: the network health strip and
// the depth histogram, both behind entries of the View menu. The health
// strip is there only when the SDK keeps stream counters; whether it is
// shown is remembered in "./view.info".
#include <QFile>
#include <QMenu>
#include <QVBoxLayout>

#include "acquisition.h"
#include "camerasession.h"
#include "controlpanel.h"
#include "depthhistogram.h"
#include "framedisplay.h"
#include "healtharea.h"
#include "healthmonitor.h"
#include "panearea.h"
#include "recorder.h"
#include "ui_widget.h"
#include "widget.h"

namespace {
const char* const kViewFile = "./view.info";
const QByteArray kHealthShown = "health=1";
}  // namespace

void Widget::initInsightViews(const LogSink& log) {
    FrameDisplay* display = display_;
    healthMonitor_ = std::make_unique<HealthMonitor>(
        camera_, *acquisition_,
        [display] {
            return PaintCounts{display->paintedFrames(1), display->paintedFrames(2), display->paintedFrames(4)};
        },
        log);
    healthArea_ = new HealthArea(this);
    healthArea_->hide();
    ui->verticalLayout->addWidget(healthArea_);

    actionHealth_ = menuView_->addAction(QString());
    actionHistogram_ = menuView_->addAction(QString());
    for (QAction* action : {actionHealth_, actionHistogram_}) action->setCheckable(true);
    actionHealth_->setVisible(healthMonitor_->available());

    connect(healthMonitor_.get(), &HealthMonitor::figuresChanged, healthArea_, &HealthArea::showFigures);
    connect(session_.get(), &CameraSession::sessionEvent, healthArea_,
            [this](SessionEvent event, const SessionStatus&) {
                if (event == SessionEvent::Stopping) healthArea_->clearFigures();
            });
    connect(actionHealth_, &QAction::toggled, this, [this](bool on) {
        healthArea_->setVisible(on);
        // Written on a writer thread, as every file of the window.
        recorder_->runFileJob(
            [on] {
                QFile file(kViewFile);
                if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) file.write(on ? kHealthShown : "health=0");
            },
            this, [] {});
    });
    connect(actionHistogram_, &QAction::toggled, display_, &FrameDisplay::showHistogram);
    connect(paneArea()->depthHistogram(), &DepthHistogramView::rangeRequested, controlPanel(),
            &ControlPanel::commitColourRange);

    if (healthMonitor_->available()) {
        QFile file(kViewFile);
        if (file.open(QIODevice::ReadOnly) && file.readAll().trimmed() == kHealthShown) {
            const QSignalBlocker block(actionHealth_);
            actionHealth_->setChecked(true);
            healthArea_->show();
        }
    }
}

void Widget::retranslateInsightViews() {
    if (!actionHealth_) return;
    actionHealth_->setText(tr("网络状态"));
    actionHistogram_->setText(tr("深度直方图"));
    healthArea_->retranslate();
}
