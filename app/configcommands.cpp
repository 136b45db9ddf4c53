#include "configcommands.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <memory>

#include "camerasession.h"
#include "compatibility.h"
#include "configfile.h"
#include "controlpanel.h"
#include "framedisplay.h"
#include "recorder.h"
#include "sessionpanel.h"
#include "uiprompt.h"

namespace {

constexpr const char* kFile = "widget";

// The working copy's own boxes, untranslated as they always were.
const QString kCannotOpenTitle = QStringLiteral("can't open");
const QString kCannotOpenText = QStringLiteral("openerr!");

}  // namespace

ConfigCommands::ConfigCommands(const Parts& parts, QObject* parent) : QObject(parent), parts_(parts) {}

PanelConfig ConfigCommands::currentConfiguration() const {
    PanelConfig config;
    parts_.controlPanel->fillConfiguration(config);
    parts_.sessionPanel->fillConfiguration(config);
    return config;
}

void ConfigCommands::exportConfiguration() {
    if (!parts_.session->status().streamingFace()) {
        warn(tr("提示"), tr("请在设备运行时导出配置！"));
        emit exportFinished();
        return;
    }
    if (!exportFolder_.isEmpty()) {
        const QString chosen = UiPrompt::getExistingDirectory(parts_.window, tr("导出路径"), exportFolder_);
        if (chosen.isEmpty()) {
            emit exportFinished();
            return;
        }
        exportFolder_ = chosen;
    } else {
        // The first export starts in the home folder and remembers whatever came back.
        exportFolder_ = UiPrompt::getExistingDirectory(parts_.window, tr("导出路径"), QDir::homePath());
    }
    if (exportFolder_.isEmpty()) {
        emit exportFinished();
        return;
    }

    DEBUG_LINE(kFile, "cunchuwenjian");
    struct Result {
        bool written = false;
        bool copied = false;
        bool leftOver = false;
    };
    auto result = std::make_shared<Result>();
    const PanelConfig config = currentConfiguration();
    const QString working = ConfigFile::workingCopyPath();
    const QString target = exportFolder_ + "/" + ConfigFile::kFileName;
    parts_.recorder->runFileJob(
        [result, config, working, target] {
            result->written = ConfigFile::write(working, config);
            result->copied = ConfigFile::copyFile(working, target);
            result->leftOver = QFile::exists(working) && !QFile::remove(working);
        },
        this,
        [this, result] {
            if (!result->written) warn(kCannotOpenTitle, kCannotOpenText);
            if (result->copied) {
                emit prompt(PromptKind::Information, tr("完成"), tr("已成功导出配置！"));
            } else {
                warn(tr("提示"), tr("配置文件无法打开！"));
                warn(tr("导出异常"), tr("导出配置文件失败！"));
            }
            if (result->leftOver) warn(tr("导出异常"), tr("导出文件未清除！"));
            emit exportFinished();
        });
}

void ConfigCommands::importConfiguration() {
    const SessionStatus& status = parts_.session->status();
    if (status.streamingFace() || !status.startedOnce) {
        warn(tr("提示"), tr("请开始运行设备后停止数据输出再导入配置！"));
        emit importFinished();
        return;
    }
    const QString desktop = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    const QString chosen = UiPrompt::getOpenFileName(parts_.window, tr("选择配置文件"), desktop);
    if (chosen.isEmpty()) {
        emit importFinished();
        return;
    }
    if (!ConfigFile::hasConfigName(chosen)) {
        warn(tr("打开失败"), tr("请检查文件是否正确！"));
        emit importFinished();
        return;
    }
    DEBUG_LINE(kFile, chosen);

    struct Result {
        bool copied = false;
        ConfigFile::ReadResult read;
        bool leftOver = false;
    };
    auto result = std::make_shared<Result>();
    const QString working = ConfigFile::workingCopyPath();
    parts_.recorder->runFileJob(
        [result, chosen, working] {
            result->copied = ConfigFile::copyFile(chosen, working);
            result->read = ConfigFile::read(working);
            // The settings are in memory now; the copy goes at once.
            result->leftOver = QFile::exists(working) && !QFile::remove(working);
        },
        this,
        [this, result] {
            if (!result->copied) warn(tr("提示"), tr("配置文件无法打开！"));
            DEBUG_LINE(kFile, ConfigFile::workingCopyPath());
            switch (result->read.status) {
                case ConfigFile::ReadResult::CannotOpen:
                    warn(kCannotOpenTitle, kCannotOpenText);
                    finishImport(result->leftOver);
                    return;
                case ConfigFile::ReadResult::JsonError:
                    parts_.log(
                        LOG_AS("readConfigFromFil")
                            .text(QString::fromUtf8("Json格式错误！") + QString::number(result->read.jsonError)));
                    finishImport(result->leftOver);
                    return;
                case ConfigFile::ReadResult::Read:
                    applyImported(result->read.config, result->leftOver);
                    return;
            }
        });
}

void ConfigCommands::applyImported(const PanelConfig& config, bool leftOver) {
    const SessionStatus& status = parts_.session->status();
    const bool colourSensor = status.device.model && status.device.model->rgbFrames;
    parts_.sessionPanel->showConfiguration(config);
    CameraScript tail;
    if (colourSensor) {
        const bool registered = config.dep2rgb || config.rgb2dep;
        tail = parts_.display->importedRegistration(config.rgb2dep, config.dep2rgb, config.rgb2pointcloud);
        parts_.sessionPanel->showImportedRegistration(registered);
    }
    parts_.controlPanel->applyConfiguration(config, colourSensor, tail, [this, leftOver](const ScriptOutcome&) {
        DEBUG_LINE(kFile, "readConfigFromFil end");
        finishImport(leftOver);
    });
}

void ConfigCommands::finishImport(bool leftOver) {
    if (leftOver) warn(tr("导入异常"), tr("导入文件未清除！"));
    // Said whatever happened before: failures have had their own boxes.
    emit prompt(PromptKind::Information, tr("完成"), tr("已成功导入配置！"));
    emit importFinished();
}

void ConfigCommands::resetConfiguration() {
    resetCommand(
        __LINE__, QStringLiteral("reset Device configuration"),
        [](CameraInterface& c) { return c.DeleteConfigureInfo(); }, tr("已成功重置配置，等待设备重启！"));
}

void ConfigCommands::resetDevice() {
    resetCommand(
        __LINE__, QStringLiteral("reset Device"), [](CameraInterface& c) { return c.RecoveryDefaultConfigure(); },
        tr("已成功重置设备，等待设备重启！"));
}

void ConfigCommands::resetCommand(int line, const QString& logText, CameraScript::Call call, const QString& doneText) {
    DEBUG_LINE(kFile, logText);
    parts_.log(Compatibility::unnamedLogLine(line, logText));
    const SessionStatus& status = parts_.session->status();
    if (status.streamingFace() || !status.startedOnce) {
        warn(tr("失败"), tr("请开始使用设备后停止设备再使用！"));
        return;
    }
    CameraScript script;
    script.call(LOG_AS("checkError"), QString(), std::move(call));
    script.onFinished(this, [this, doneText](const ScriptOutcome& outcome) {
        // The camera restarts now; the session notices the lost link.
        if (outcome.ok()) emit prompt(PromptKind::Information, tr("完成"), doneText);
    });
    parts_.session->run(script);
}
