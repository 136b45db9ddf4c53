// Dialog for the camera's IP address. The main window creates it once and
// re-translates it with the rest of the interface.
#pragma once

#include <QWidget>

namespace Ui {
class netSetting;
}

class netSetting : public QWidget {
    Q_OBJECT
public:
    explicit netSetting(QWidget* parent = nullptr);
    ~netSetting() override;

    void retranslate();

private:
    Ui::netSetting* ui;
};
