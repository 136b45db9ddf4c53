#include "tcporudp.h"

#include "ui_tcporudp.h"

TcpORudp::TcpORudp(QWidget* parent) : QWidget(parent), ui(new Ui::TcpORudp) { ui->setupUi(this); }

TcpORudp::~TcpORudp() { delete ui; }
