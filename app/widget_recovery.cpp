// Result checks and the end of a lost session. The recovery thread that
// re-opens a session after a link callback lives beside them.
#include <QPushButton>

#include "ui_widget.h"
#include "uiprompt.h"
#include "widget.h"

bool Widget::checkError(ReturnCode ret) {
    if (ret == SUCCESS) return true;
    const std::string text = camera_.GetReturnCodeDescriptor(ret);
    const QString message = tr("错误信息：%1").arg(QString::fromLocal8Bit(text.c_str()));
    if (ret == NETWORK_ERROR) {
        // The session is gone on our side before the user reads why.
        deviceDisconnect();
        UiPrompt::warning(this, tr("网络错误"), message);
    } else {
        UiPrompt::warning(this, tr("状态异常"), message);
    }
    return false;
}

// The camera is regarded as gone: nothing is sent to it.
void Widget::deviceDisconnect() {
    UiPrompt::warning(this, tr("设备断开"), tr("设备已断开链接！"));
    resetView();
    setControlIsEnable(false);
    ui->pushButton_2->setEnabled(false);
    ui->pushButton_2->setText(tr("开始"));
    ui->pushButton->setEnabled(true);
    ui->pushButton_6->setEnabled(false);
    ui->comboBox->clear();
    connected.exchange(false);
    streaming.exchange(false);
}

// The recovery thread. Not written yet: it idles until the window closes.
void Widget::reconnectLoop() {
    while (idleFor(200)) {
    }
}
