#include "tcporudp.h"

#include <QDebug>

#include "ui_tcporudp.h"

std::atomic<bool> transportIsTcp{true};

TcpORudp::TcpORudp(QWidget* parent) : QWidget(parent), ui(new Ui::TcpORudp) { ui->setupUi(this); }

TcpORudp::~TcpORudp() { delete ui; }

void TcpORudp::on_radioButton_clicked() { storeChoice(); }

void TcpORudp::on_radioButton_2_clicked() { storeChoice(); }

void TcpORudp::storeChoice() {
    const bool tcp = ui->radioButton->isChecked();
    transportIsTcp.exchange(tcp);
    qDebug() << "tcporudp" << __LINE__ << "istcp:" << tcp;
}
