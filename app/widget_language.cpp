// Switching the interface between Chinese (the source texts) and English.
// Texts that show state (start/stop, status line, camera information) are
// derived from the session again by each part, so nothing is read back from
// a caption.
#include <QApplication>
#include <QDebug>
#include <QFile>
#include <QMenu>

#include "controlpanel.h"
#include "debug.h"
#include "netsetting.h"
#include "panearea.h"
#include "sessionpanel.h"
#include "ui_widget.h"
#include "widget.h"

namespace {
const char* const kLanguageFile = "./language.info";
const char* const kEnglishTranslation = ":/source/language/Quorel_en.qm";
}  // namespace

void Widget::switchLanguage(int index) {
    qDebug() << "widget"
             << "switchLanguage" << __LINE__ << "switch language";
    qApp->removeTranslator(&translator);
    if (index == 1) {
        translator.load(kEnglishTranslation);
        qApp->installTranslator(&translator);
    } else {
        // Loading nothing empties the translator, which is how Chinese is
        // recorded by saveLanguage.
        (void)translator.load(QString());
    }
    ui->retranslateUi(this);
    sessionPanel()->retranslate();
    paneArea()->retranslate();
    controlPanel()->retranslate();
    netDialog_->retranslate();
    debugWindow_->retranslate();
    setUiText();
}

void Widget::getLanguage() {
    QFile file(kLanguageFile);
    QByteArray content;
    if (file.open(QIODevice::ReadOnly))
        content = file.readAll();
    else
        qDebug() << "widget"
                 << "getLanguage" << __LINE__ << "open err";
    if (!content.isEmpty() && content.at(0) == '1') switchLanguage(1);
}

void Widget::saveLanguage() {
    QFile file(kLanguageFile);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        qDebug() << "widget"
                 << "saveLanguage" << __LINE__ << "open err";
        return;
    }
    file.write(translator.isEmpty() ? "0" : "1");
}

void Widget::setUiText() {
    setWindowTitle(tr("Dexalon V2.0.9"));
    debugWindow_->setWindowTitle(tr("Debug"));
    menuNetwork_->setTitle(tr("网络"));
    actionNetworkSettings_->setText(tr("设备网络设置"));
    menuView_->setTitle(tr("视图"));
    actionControlPanel_->setText(tr("控制面板"));
    actionManagementPanel_->setText(tr("管理面板"));
    menuConfig_->setTitle(tr("配置"));
    actionUpdate_->setText(tr("更新"));
    actionImportConfig_->setText(tr("导入配置"));
    actionExportConfig_->setText(tr("导出配置"));
    actionResetConfig_->setText(tr("设备配置初始化"));
    actionResetDevice_->setText(tr("设备初始化"));
    actionDefaultLayout_->setText(tr("界面默认配置"));
    actionSwitchProtocol_->setText(tr("切换网络协议"));
    menuLanguage_->setTitle(tr("切换语言"));
    actionChinese_->setText(tr("中文"));
    actionEnglish_->setText(tr("English"));
    actionDebug_->setText(tr("调试信息"));
    retranslateInsightViews();
}
