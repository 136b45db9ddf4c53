#include "tcporudp.h"

#include <QDebug>

#include "ui_tcporudp.h"

TcpORudp::TcpORudp(QWidget* parent) : QWidget(parent), ui(new Ui::TcpORudp) { ui->setupUi(this); }

TcpORudp::~TcpORudp() { delete ui; }

void TcpORudp::on_radioButton_clicked() { storeChoice(); }

void TcpORudp::on_radioButton_2_clicked() { storeChoice(); }

bool TcpORudp::tcp() const { return ui->radioButton->isChecked(); }

void TcpORudp::storeChoice() {
    const bool isTcp = tcp();
    qDebug() << "tcporudp" << __LINE__ << "istcp:" << isTcp;
    emit transportChosen(isTcp);
}
