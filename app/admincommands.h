// The camera administration commands of the menus: moving the camera to
// another address (the network dialog's update) and updating its firmware
// through the external tool. Camera calls run as session scripts and the tool
// runs as a child process, so the window keeps painting while either works;
// the tool's lines feed a modal progress dialog.
#pragma once

#include <QObject>
#include <QPointer>
#include <QProgressDialog>
#include <QString>

#include "firmwaretool.h"
#include "logline.h"
#include "netsetting.h"
#include "sessionstate.h"

class CameraSession;
class QWidget;
class SessionPanel;

class AdminCommands : public QObject {
    Q_OBJECT
public:
    struct Parts {
        QWidget* window;
        CameraSession* session;
        SessionPanel* sessionPanel;
        netSetting* netDialog;
        LogSink log;
    };
    // The address sent when the dialog gives none, and the one mask the
    // dialog can send (it has no field for it).
    static inline const QString kDefaultAddress = QStringLiteral("192.168.1.200");
    static inline const QString kFixedNetmask = QStringLiteral("255.255.255.0");

    explicit AdminCommands(const Parts& parts, QObject* parent = nullptr);
    ~AdminCommands() override;

    // Tests shorten the tool's waits; the program keeps 5 s and 30 s.
    void setFirmwareTiming(FirmwareToolRun::Timing timing) { timing_ = timing; }
    // The progress dialog of the update under way, if any.
    QProgressDialog* progressDialog() const { return progress_; }

public slots:
    void setNetwork(NetworkRequest n);
    void updateFirmware();

signals:
    void prompt(PromptKind kind, const QString& title, const QString& text);
    // The network update has shown its box (or was refused).
    void networkFinished();
    // A line the firmware tool printed, as the progress dialog shows it.
    void firmwareOutput(const QString& line);
    // The firmware command is over, whatever became of it.
    void firmwareFinished();

private:
    void onFirmwareLine(const QString& line);
    void onFirmwareFinished(const FirmwareRunResult& result);
    void warn(const QString& title, const QString& text) { emit prompt(PromptKind::Warning, title, text); }

    Parts parts_;
    FirmwareToolRun::Timing timing_;
    QPointer<FirmwareToolRun> run_;
    QPointer<QProgressDialog> progress_;
};
