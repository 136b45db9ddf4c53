// Dialog choosing the transport protocol used by the next device start.
#pragma once

#include <QWidget>
#include <atomic>

namespace Ui {
class TcpORudp;
}

// The transport of the next device start: true for TCP (the default at every
// program start), false for UDP. Not saved; a running session keeps its own.
extern std::atomic<bool> transportIsTcp;

class TcpORudp : public QWidget {
    Q_OBJECT
public:
    explicit TcpORudp(QWidget* parent = nullptr);
    ~TcpORudp() override;

private slots:
    // Both radio buttons store the same thing: whether TCP is now checked.
    void on_radioButton_clicked();
    void on_radioButton_2_clicked();

private:
    void storeChoice();

    Ui::TcpORudp* ui;
};
