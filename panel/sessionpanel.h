// The management panel: search, the device list, what the open camera is,
// the display boxes, start/stop, disconnect and the status line. Its captions
// and enabled states follow the session's status; its buttons only ask the
// session for something.
#pragma once

#include <QWidget>
#include <array>

#include "panelconfig.h"
#include "sessionstate.h"

class QCheckBox;
class QTableWidget;

namespace Ui {
class SessionPanel;
}

class SessionPanel : public QWidget {
    Q_OBJECT
public:
    explicit SessionPanel(QWidget* parent = nullptr);
    ~SessionPanel() override;

    // The pane boxes in pane order: depth, IR, point cloud, colour.
    std::array<QCheckBox*, 4> paneCheckBoxes() const;
    QTableWidget* trayTable() const;
    const SessionStatus& status() const { return status_; }
    // The entry the user has chosen in the device list (-1 / empty: none).
    int currentRow() const;
    QString currentDeviceText() const;

    void retranslate();
    // The colour parts of the display group, for a camera with or without a
    // colour sensor; the mapping caption is never shown.
    void switchUi(bool isRGB);
    // Fast mode gives up registered views: their boxes are cleared and locked.
    void setRegistrationAllowed(bool allowed);

    // The display group's part of a configuration file.
    void fillConfiguration(PanelConfig& config) const;
    // Ticks the display boxes as a configuration file says. The panes and
    // the registration stay as they are until told (showImportedRegistration).
    void showConfiguration(const PanelConfig& config);
    // The coloured point cloud box can be used only with a registration.
    void showImportedRegistration(bool registered);

public slots:
    void applySessionStatus(const SessionStatus& status);
    void applySessionEvent(SessionEvent event, const SessionStatus& status);

signals:
    void searchRequested();
    void startRequested(int row);
    void stopRequested();
    void disconnectRequested();
    void deviceChangeRequested();
    // The two registration boxes exclude each other; `colouredCloud` is the
    // state of the coloured point cloud box.
    void registrationChanged(bool rgbToDepth, bool depthToRgb, bool colouredCloud);
    void colouredCloudChanged(bool on);
    // Record the trays of the next frames ("储存托盘信息").
    void trayRecordingRequested();

private:
    void showStatus();
    void onRegistrationClicked(QCheckBox* own, QCheckBox* other);
    void emitRegistration();

    Ui::SessionPanel* ui;
    SessionStatus status_;
};
