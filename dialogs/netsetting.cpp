#include "netsetting.h"

#include <QDebug>

#include "ui_netsetting.h"

netSetting::netSetting(QWidget* parent) : QWidget(parent), ui(new Ui::netSetting) {
    ui->setupUi(this);
    qRegisterMetaType<NetworkRequest>("NetworkRequest");
    // DHCP leaves the address to the network; the boxes keep what was typed.
    connect(ui->checkBox, &QCheckBox::toggled, this, [this](bool dhcp) {
        for (QSpinBox* box : {ui->spinBox, ui->spinBox_2, ui->spinBox_3, ui->spinBox_4}) box->setEnabled(!dhcp);
    });
    connect(ui->pushButton, &QPushButton::clicked, this, &netSetting::onUpdateClicked);
}

netSetting::~netSetting() { delete ui; }

void netSetting::retranslate() { ui->retranslateUi(this); }

QString netSetting::address() const {
    return QStringList{ui->spinBox->text(), ui->spinBox_2->text(), ui->spinBox_3->text(), ui->spinBox_4->text()}.join(
        '.');
}

void netSetting::onUpdateClicked() {
    NetworkRequest request;
    request.dhcp = ui->checkBox->isChecked();
    request.ip = address();
    qDebug().noquote() << "netsetting" << __LINE__ << request.ip;
    emit setNetwork(request);
}
