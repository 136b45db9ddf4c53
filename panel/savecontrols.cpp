#include "savecontrols.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QLabel>
#include <QPushButton>

#include "uiprompt.h"

SaveControls::SaveControls(QWidget* panel, QPushButton* savePath, QPushButton* save, QPushButton* startSave,
                           QPushButton* endSave, QLabel* counts)
    : QObject(panel), panel_(panel), start_(startSave), end_(endSave), counts_(counts) {
    connect(savePath, &QPushButton::clicked, this, &SaveControls::chooseSaveRoot);
    connect(save, &QPushButton::clicked, this, &SaveControls::saveSingleFrame);
    connect(startSave, &QPushButton::clicked, this, &SaveControls::startSaving);
    connect(endSave, &QPushButton::clicked, this, &SaveControls::endSaving);
    counts_->hide();
}

int SaveControls::firstCjkIdeograph(const QString& path) {
    for (int i = 0; i < path.size(); ++i) {
        const ushort u = path.at(i).unicode();
        if (u >= 19968 && u <= 40959) return i;
    }
    return -1;
}

void SaveControls::chooseSaveRoot() {
    if (!root_.isEmpty()) {
        const QString chosen = UiPrompt::getExistingDirectory(panel_, tr("存储路径"), root_);
        if (!chosen.isEmpty()) root_ = chosen;
    } else {
        // The home folder stands where the first choice has always started.
        root_ = UiPrompt::getExistingDirectory(panel_, tr("存储路径"), QDir::homePath());
    }
    if (firstCjkIdeograph(root_) >= 0) {
        emit prompt(PromptKind::Warning, tr("路径错误"), tr("路径中不能包含中文字符！"));
        root_.clear();
    }
    qDebug().noquote() << "savecontrols" << __func__ << __LINE__ << root_;
    emit saveRootChanged(root_);
}

bool SaveControls::rootChosen() {
    if (!root_.isEmpty()) return true;
    emit prompt(PromptKind::Warning, tr("未选择路径"), tr("请先选择保存路径"));
    return false;
}

void SaveControls::saveSingleFrame() {
    if (!rootChosen()) return;
    emit singleSaveRequested(root_ + '/' + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMddhhmmsszzz")));
    // Said at once: the files are written when the next frame arrives.
    emit prompt(PromptKind::Information, tr("保存成功"), tr("保存成功"));
}

void SaveControls::startSaving() {
    if (!rootChosen()) return;
    end_->setEnabled(true);
    start_->setEnabled(false);
    emit continuousSavingChanged(true);
}

void SaveControls::endSaving() {
    start_->setEnabled(true);
    end_->setEnabled(false);
    emit continuousSavingChanged(false);
}

void SaveControls::streamStopping() { emit continuousSavingChanged(false); }

void SaveControls::showCounts(unsigned saved, unsigned waiting, unsigned failed) {
    saved_ = saved;
    waiting_ = waiting;
    failed_ = failed;
    shown_ = true;
    retranslate();
}

void SaveControls::retranslate() {
    if (!shown_) return;
    counts_->setText(tr("已保存 %1 帧，等待 %2，失败 %3").arg(saved_).arg(waiting_).arg(failed_));
    counts_->show();
}
