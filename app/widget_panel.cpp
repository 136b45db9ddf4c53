// Start-up state of the control panel and the frame-rate limit table.
#include <algorithm>

#include "slidereditor.h"
#include "ui_widget.h"
#include "widget.h"

namespace {

struct EditorSetup {
    SliderEditer* Ui::Widget::*editor;
    const char* label;  // translated in the editor's own context
    int min;
    int max;
    int initial;
    bool checkBox;  // only the filters can be switched off on their own
};

const EditorSetup kEditors[] = {
    {&Ui::Widget::widget_exposure_time, QT_TRANSLATE_NOOP("SliderEditer", "曝光时间(us)"), 6, 4000, 6, false},
    {&Ui::Widget::widget_fps, QT_TRANSLATE_NOOP("SliderEditer", "帧率设置"), 1, 20, 1, false},
    {&Ui::Widget::widget_min_color_mapping, QT_TRANSLATE_NOOP("SliderEditer", "最小色彩映射距离(mm)"), 100, 15000, 100,
     false},
    {&Ui::Widget::widget_max_color_mapping, QT_TRANSLATE_NOOP("SliderEditer", "最大色彩映射距离(mm)"), 100, 15000, 5000,
     false},
    {&Ui::Widget::widget_gamma_value, QT_TRANSLATE_NOOP("SliderEditer", "IR伽马值"), 0, 255, 0, false},
    {&Ui::Widget::widget_time_filter, QT_TRANSLATE_NOOP("SliderEditer", "时域滤波"), 1, 4, 1, true},
    {&Ui::Widget::widget_fly_filter, QT_TRANSLATE_NOOP("SliderEditer", "飞点滤波"), 1, 63, 1, true},
    {&Ui::Widget::widget_confidence_filter, QT_TRANSLATE_NOOP("SliderEditer", "置信度滤波"), 1, 150, 1, true},
    {&Ui::Widget::widget_kalman_filter, QT_TRANSLATE_NOOP("SliderEditer", "卡尔曼滤波"), 1, 100, 1, true},
    {&Ui::Widget::widget_rgb_manual_exposure, QT_TRANSLATE_NOOP("SliderEditer", "RGB曝光时间(us)"), 0, 10000, 0, false},
    {&Ui::Widget::widget_rgb_maximum_exposure_time, QT_TRANSLATE_NOOP("SliderEditer", "RGB最大自动曝光时间"), 1, 100, 1,
     false},
    {&Ui::Widget::widget_brightness, QT_TRANSLATE_NOOP("SliderEditer", "RGB增益"), 0, 1023, 0, false},
    {&Ui::Widget::widget_contrast, QT_TRANSLATE_NOOP("SliderEditer", "RGB对比度"), 100, 500, 100, false},
};

}  // namespace

void Widget::setupEditors() {
    for (const EditorSetup& e : kEditors) {
        SliderEditer* editor = ui->*e.editor;
        editor->setCheckBoxVisible(e.checkBox);
        editor->setRange(e.min, e.max);
        editor->setValue(e.initial);
    }
    setEditorLabels();
}

void Widget::setEditorLabels() {
    int widest = 0;
    for (const EditorSetup& e : kEditors) widest = std::max(widest, (ui->*e.editor)->setLabelText(e.label));
    // One label width for all rows so the sliders line up in a column.
    for (const EditorSetup& e : kEditors) (ui->*e.editor)->setLabelWidth(widest);
}

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
