// Dialog choosing the transport protocol used by the next device start.
#pragma once

#include <QWidget>

namespace Ui {
class TcpORudp;
}

class TcpORudp : public QWidget {
    Q_OBJECT
public:
    explicit TcpORudp(QWidget* parent = nullptr);
    ~TcpORudp() override;

private:
    Ui::TcpORudp* ui;
};
