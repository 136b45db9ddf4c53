// Start-up state of the control panel and the frame-rate limit table.
#include "ui_widget.h"
#include "widget.h"

void Widget::controlPanelInit() {
    // The delay fields only mean something in delayed hardware trigger mode,
    // which is not the mode a session starts in.
    ui->spinBox_ms->setEnabled(false);
    ui->spinBox_us->setEnabled(false);
    ui->pushButton_set_time->setEnabled(false);
    // Continuous saving is not running yet, so there is nothing to end.
    ui->pushButton_end_save->setEnabled(false);
    ui->comboBox_median_filtering->setCurrentIndex(0);
    ui->comboBox_mode->setCurrentIndex(0);
}

void Widget::buildMap() { fillFrameRateLimits(frameRateMap); }
