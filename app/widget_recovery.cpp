// Result checks and the end of a lost session. The recovery thread that
// re-opens a session after a link callback lives beside them.
#include <QDateTime>
#include <QPushButton>
#include <QRadioButton>
#include <QTimer>
#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "debug.h"
#include "slidereditor.h"
#include "ui_widget.h"
#include "uiprompt.h"
#include "widget.h"
#include "widgetlog.h"

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
    deviceList.clear();
    connected.exchange(false);
    streaming.exchange(false);
}

QString Widget::startButtonTextFromWorker() {
    // The GUI thread owns the button: ask it, and give up the wait (not the
    // answer's storage) when the window is being destroyed.
    auto answer = std::make_shared<std::promise<QString>>();
    std::future<QString> text = answer->get_future();
    QMetaObject::invokeMethod(
        this, [this, answer] { answer->set_value(ui->pushButton_2->text()); }, Qt::QueuedConnection);
    while (text.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready)
        if (stopThreads_) return QString();
    return text.get();
}

// Waits for a reconnect request from the link callback, then tries up to 30
// times to re-open the session, as long as the user has not pressed stop.
// A final failure is only logged: the message asks for a new search.
void Widget::reconnectLoop() {
    for (;;) {
        while (!reconnectRequested)
            if (!idleFor(20)) return;
        for (int i = 29; i >= 0; --i) {
            if (stopThreads_) return;
            const QString text = startButtonTextFromWorker();
            if (text == QStringLiteral("停止") || text == QStringLiteral("Stop")) {
                WIDGET_DEBUG(QString("i:%1").arg(i));
                std::this_thread::sleep_for(std::chrono::microseconds(100));
                WIDGET_DEBUG(QString::number(QDateTime::currentMSecsSinceEpoch()));
                const ReturnCode ret = sdk().ReconnectDevice(1000);
                WIDGET_DEBUG(QString::number(QDateTime::currentMSecsSinceEpoch()));
                if (ret == SUCCESS) {
                    // Stop may have been pressed while this attempt ran: the
                    // session is back, but the user no longer wants frames.
                    const QString now = startButtonTextFromWorker();
                    if (now != QStringLiteral("停止") && now != QStringLiteral("Stop")) {
                        reconnectRequested.exchange(false);
                        break;
                    }
                    sdk().StartStream();
                    WIDGET_LOG("reconnect succeed");
                    reconnectRequested.exchange(false);
                    streaming.exchange(true);
                    break;
                }
                WIDGET_LOG("reconnect " + QString::number(i) + " " +
                           QString::fromLocal8Bit(camera_.GetReturnCodeDescriptor(ret).c_str()));
                if (i == 0) WIDGET_LOG("reconnect err! please search once again!!!");
            }
            reconnectRequested.exchange(false);
        }
    }
}

void Widget::timedService() {
    auto* timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, [this] {
        if (!connected || !streaming || !ui->radioButton_auto->isChecked()) return;
        int exposure = 0;
        if (!checkError(sdk().GetTofCameraExposureTime(exposure))) return;
        ui->widget_exposure_time->setValue(exposure);
        WIDGET_DEBUG(QString::number(exposure));
    });
    timer->start(1000);
}
