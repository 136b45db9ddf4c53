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

    // The transport the dialog shows: true for TCP (the default at every
    // program start), false for UDP.
    bool tcp() const;

signals:
    // The user chose the transport of the next device start. Not saved; a
    // running session keeps its own.
    void transportChosen(bool tcp);

private slots:
    // Both radio buttons store the same thing: whether TCP is now checked.
    void on_radioButton_clicked();
    void on_radioButton_2_clicked();

private:
    void storeChoice();

    Ui::TcpORudp* ui;
};
