#include "admincommands.h"

#include <QIcon>
#include <QProgressBar>
#include <QProgressDialog>
#include <QStandardPaths>

#include "camerasession.h"
#include "compatibility.h"
#include "sessionpanel.h"
#include "uiprompt.h"

namespace {
constexpr const char* kFile = "widget";
}  // namespace

AdminCommands::AdminCommands(const Parts& parts, QObject* parent) : QObject(parent), parts_(parts) {}

AdminCommands::~AdminCommands() {
    // A tool still running is stopped with its run.
    delete run_;
    delete progress_;
}

// --- The camera's address

void AdminCommands::setNetwork(NetworkRequest n) {
    NetworkMode mode;
    mode.ip = kDefaultAddress.toStdString();
    mode.ip = n.ip.toLocal8Bit().toStdString();
    mode.netmask = kFixedNetmask.toStdString();
    mode.isStatic = !n.dhcp;
    const QString line = "set ip :" + n.ip + " " + kFixedNetmask + " " + QString::number(int(mode.isStatic));
    DEBUG_LINE(kFile, Compatibility::unnamedLogLine(__LINE__, line));
    parts_.log(Compatibility::unnamedLogLine(__LINE__, line));

    const SessionStatus status = parts_.session->status();
    if (status.streamingFace() || !status.startedOnce) {
        warn(tr("警告"), status.streamingFace() ? tr("请先停止设备数据输出！") : tr("请在器件运行过后使用此功能！"));
        parts_.netDialog->hide();
        emit networkFinished();
        return;
    }

    // The entry to drop once the camera has taken its new address: the one
    // chosen now, even if the list changes while the camera answers.
    const int row = parts_.sessionPanel->currentRow();
    const QString device = parts_.sessionPanel->currentDeviceText();
    CameraScript script(tr("正在更新设备IP..."));
    CameraStep& step = script.call(
        LOG_AS("setNetwork"), QString(), [mode](CameraInterface& c) { return c.SetNetworkMode(mode); }, QString(),
        ResultCheck::Box);
    step.boxTitle = tr("更新失败");
    step.boxText = tr("IP更新失败：%1");
    script.onFinished(this, [this, row, device](const ScriptOutcome& outcome) {
        parts_.netDialog->hide();
        if (outcome.result(0) == SUCCESS) {
            emit prompt(PromptKind::Information, tr("更新成功"), tr("IP更新成功，请断开链接重新搜索设备！"));
            // The link stays: the camera drops it when it restarts, and the
            // user searches again to find it at its new address.
            parts_.session->forgetDevice(row, device);
        }
        emit networkFinished();
    });
    parts_.session->run(script);
}

// --- Firmware

void AdminCommands::updateFirmware() {
    DEBUG_LINE(kFile, "update");
    const QString deviceText = parts_.sessionPanel->currentDeviceText();
    DEBUG_LINE(kFile, Compatibility::firmwareDebugAddress(deviceText));
    if (run_) return;  // one update at a time; its dialog is modal anyway

    const SessionStatus status = parts_.session->status();
    if (deviceText.isEmpty() || status.streamingFace()) {
        if (status.startedOnce && !deviceText.isEmpty())
            warn(tr("更新失败"), tr("请在器件停止运行时使用更新功能！"));
        else
            warn(tr("提示"), tr("请连接器件后使用更新功能！"));
        emit firmwareFinished();
        return;
    }

    const QString desktop = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    const QString image = UiPrompt::getOpenFileName(parts_.window, tr("选择升级文件"), desktop);
    DEBUG_LINE(kFile, image);
    if (image.isEmpty()) {
        emit firmwareFinished();
        return;
    }

    // The user waits for the outcome, as with a blocking call, but the window
    // goes on painting and the tool's progress shows as it comes.
    progress_ = new QProgressDialog(parts_.window);
    progress_->setObjectName(QStringLiteral("firmwareProgress"));
    progress_->setWindowTitle(tr("设备网络更新"));
    progress_->setWindowIcon(QIcon(QStringLiteral(":/source/kxlogo.ico")));
    progress_->setLabelText(tr("正在更新固件，请勿断开设备电源..."));
    progress_->setCancelButton(nullptr);
    progress_->setAutoClose(false);
    progress_->setAutoReset(false);
    progress_->setMinimumDuration(0);
    progress_->setMinimumWidth(420);
    // The window's dark look; a dialog of its own would come up light.
    auto* bar = new QProgressBar(progress_);
    bar->setStyleSheet(
        QStringLiteral("QProgressBar{background:#484848;color:#DCDCDC;border:1px solid #5a5a5a;border-radius:3px;"
                       "text-align:center;min-height:20px;}"
                       "QProgressBar::chunk{background:#718093;border-radius:3px;}"));
    progress_->setBar(bar);
    progress_->setStyleSheet(QStringLiteral("QProgressDialog{background:rgb(53,53,53);} QLabel{color:#DCDCDC;}"));
    progress_->setRange(0, 0);
    progress_->setWindowModality(Qt::ApplicationModal);
    progress_->show();

    run_ = new FirmwareToolRun(this);
    connect(run_, &FirmwareToolRun::outputLine, this, &AdminCommands::onFirmwareLine);
    connect(run_, &FirmwareToolRun::finished, this, &AdminCommands::onFirmwareFinished);
    run_->start(FirmwareTool::kProgram, FirmwareTool::arguments(image, deviceText), timing_);
}

void AdminCommands::onFirmwareLine(const QString& line) {
    emit firmwareOutput(line);
    if (!progress_) return;
    progress_->setLabelText(tr("正在更新固件，请勿断开设备电源...") + "\n" + line);
    const int percent = FirmwareTool::progressPercent(line);
    if (percent >= 0) {
        progress_->setRange(0, 100);
        progress_->setValue(percent);
    }
}

void AdminCommands::onFirmwareFinished(const FirmwareRunResult& result) {
    if (progress_) {
        progress_->hide();
        progress_->deleteLater();
        progress_.clear();
    }
    if (run_) {
        run_->deleteLater();
        run_.clear();
    }

    const QString program = FirmwareTool::kProgram;
    switch (result.outcome) {
        case FirmwareRunResult::Outcome::Succeeded:
            emit prompt(PromptKind::Information, tr("更新完成"), tr("请等待设备绿灯亮起后重新开始"));
            parts_.session->cameraRestarting();
            break;
        case FirmwareRunResult::Outcome::NotStarted:
            parts_.log(LOG_AS("update").text("firmware update: " + program + " did not start: " + result.reason));
            break;
        case FirmwareRunResult::Outcome::TimedOut:
            parts_.log(LOG_AS("update").text(
                QStringLiteral("firmware update: %1 did not finish within %2 s and was stopped%3")
                    .arg(program)
                    .arg(timing_.finishMs / 1000.0)
                    .arg(result.reason.isEmpty() ? QString() : " (last error: " + result.reason + ")")));
            break;
        case FirmwareRunResult::Outcome::NoMarker:
            parts_.log(LOG_AS("update").text(
                QStringLiteral("firmware update failed: %1 ended with code %2 without reporting success%3")
                    .arg(program)
                    .arg(result.exitCode)
                    .arg(result.reason.isEmpty() ? QString() : ": " + result.reason)));
            break;
    }
    emit firmwareFinished();
}
