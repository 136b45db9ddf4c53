// The camera session as the user drives it: search, start/stop, disconnect
// and device change.
#include <QCheckBox>
#include <QLabel>

#include "ui_widget.h"
#include "widget.h"

void Widget::resetView() {
    for (QLabel* label : {ui->label_IP, ui->label_SN, ui->label_FW, ui->label_Model, ui->label_DV}) label->clear();
    ui->label_statusBar->setText(tr(" 等待搜索..."));
    for (QWidget* pane : {ui->widget_DEP, ui->widget_IR, ui->widget_CP, ui->widget_RGB}) pane->hide();
    for (QCheckBox* box : {ui->checkBoxDep, ui->checkBoxIr, ui->checkBoxCp, ui->checkBoxRgb}) box->setChecked(false);
}
