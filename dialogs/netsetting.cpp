#include "netsetting.h"

#include "ui_netsetting.h"

netSetting::netSetting(QWidget* parent) : QWidget(parent), ui(new Ui::netSetting) { ui->setupUi(this); }

netSetting::~netSetting() { delete ui; }

void netSetting::retranslate() { ui->retranslateUi(this); }
