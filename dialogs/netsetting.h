// Dialog for the camera's IP address. The main window creates it once and
// re-translates it with the rest of the interface; what an update does with
// the camera is the handler's business, the dialog only says what was typed.
#pragma once

#include <QMetaType>
#include <QString>
#include <QWidget>

namespace Ui {
class netSetting;
}

// What the update button sends: the DHCP box and the address of the four
// boxes. The address goes along even with DHCP ticked.
struct NetworkRequest {
    bool dhcp = false;
    QString ip;
};
Q_DECLARE_METATYPE(NetworkRequest)

class netSetting : public QWidget {
    Q_OBJECT
public:
    explicit netSetting(QWidget* parent = nullptr);
    ~netSetting() override;

    void retranslate();
    // The four boxes joined by dots, first box first.
    QString address() const;

signals:
    void setNetwork(NetworkRequest n);

private:
    void onUpdateClicked();

    Ui::netSetting* ui;
};
