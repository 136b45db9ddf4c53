// Switching the interface between Chinese (the source texts) and English.
#include <QApplication>
#include <QDebug>
#include <QFile>
#include <QMenu>

#include "debug.h"
#include "netsetting.h"
#include "ui_widget.h"
#include "widget.h"

namespace {
const char* const kLanguageFile = "./language.info";
const char* const kEnglishTranslation = ":/source/language/Quorel_en.qm";
}  // namespace

void Widget::switchLanguage(int index) {
    qDebug() << "widget"
             << "switchLanguage" << __LINE__ << "switch language";
    setWindowTitle(tr("Dexalon V2.0.9"));

    // Texts the form does not own: the form's re-translation would reset them.
    const QString startStop = ui->pushButton_2->text();
    const QString status = ui->label_statusBar->text();
    const QString ip = ui->label_IP->text();
    const QString sn = ui->label_SN->text();
    const QString fw = ui->label_FW->text();
    const QString model = ui->label_Model->text();
    const QString dv = ui->label_DV->text();

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
    netDialog_->retranslate();
    debugWindow_->retranslate();

    // Both languages are recognised, so switching twice in a row works.
    const bool reads_start = startStop == "开始" || startStop == "Start";
    ui->pushButton_2->setText(reads_start ? tr("开始") : tr("停止"));
    const bool searched = status.contains("已搜索") || status.contains("Searched");
    ui->label_statusBar->setText(searched ? tr("已搜索到设备") : tr(" 等待搜索..."));
    ui->label_IP->setText(ip);
    ui->label_SN->setText(sn);
    ui->label_FW->setText(fw);
    ui->label_Model->setText(model);
    ui->label_DV->setText(dv);

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
    debugWindow_->setWindowTitle(tr("Debug"));
    ui->pushButton->setText(tr("搜索设备"));
    ui->checkBoxIr->setText(tr("IR图"));
    ui->checkBoxRgb->setText(tr("RGB"));
    ui->checkBoxCp->setText(tr("点云"));
    ui->checkBoxDep->setText(tr("深度图"));
    setEditorLabels();

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
}
