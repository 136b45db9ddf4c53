// Construction, texts, width and enabled states of the control panel.
#include "controlpanel.h"

#include <QCoreApplication>
#include <QScrollBar>
#include <QTimer>
#include <algorithm>

#include "savecontrols.h"
#include "slidereditor.h"
#include "ui_controlpanel.h"

namespace {

struct EditorSetup {
    SliderEditer* Ui::ControlPanel::*editor;
    const char* label;  // translated in the editor's own context
    int min;
    int max;
    int initial;
    bool checkBox;  // only the filters can be switched off on their own
};

const EditorSetup kEditors[] = {
    {&Ui::ControlPanel::widget_exposure_time, QT_TRANSLATE_NOOP("SliderEditer", "曝光时间(us)"), 6, 4000, 6, false},
    {&Ui::ControlPanel::widget_fps, QT_TRANSLATE_NOOP("SliderEditer", "帧率设置"), 1, 20, 1, false},
    {&Ui::ControlPanel::widget_min_color_mapping, QT_TRANSLATE_NOOP("SliderEditer", "最小色彩映射距离(mm)"), 100, 15000,
     100, false},
    {&Ui::ControlPanel::widget_max_color_mapping, QT_TRANSLATE_NOOP("SliderEditer", "最大色彩映射距离(mm)"), 100, 15000,
     5000, false},
    {&Ui::ControlPanel::widget_gamma_value, QT_TRANSLATE_NOOP("SliderEditer", "IR伽马值"), 0, 255, 0, false},
    {&Ui::ControlPanel::widget_time_filter, QT_TRANSLATE_NOOP("SliderEditer", "时域滤波"), 1, 4, 1, true},
    {&Ui::ControlPanel::widget_fly_filter, QT_TRANSLATE_NOOP("SliderEditer", "飞点滤波"), 1, 63, 1, true},
    {&Ui::ControlPanel::widget_confidence_filter, QT_TRANSLATE_NOOP("SliderEditer", "置信度滤波"), 1, 150, 1, true},
    {&Ui::ControlPanel::widget_kalman_filter, QT_TRANSLATE_NOOP("SliderEditer", "卡尔曼滤波"), 1, 100, 1, true},
    {&Ui::ControlPanel::widget_rgb_manual_exposure, QT_TRANSLATE_NOOP("SliderEditer", "RGB曝光时间(us)"), 0, 10000, 0,
     false},
    {&Ui::ControlPanel::widget_rgb_maximum_exposure_time, QT_TRANSLATE_NOOP("SliderEditer", "RGB最大自动曝光时间"), 1,
     100, 1, false},
    {&Ui::ControlPanel::widget_brightness, QT_TRANSLATE_NOOP("SliderEditer", "RGB增益"), 0, 1023, 0, false},
    {&Ui::ControlPanel::widget_contrast, QT_TRANSLATE_NOOP("SliderEditer", "RGB对比度"), 100, 500, 100, false},
};

// The width the form was drawn for; a language with longer labels widens it.
constexpr int kPanelWidth = 400;

}  // namespace

ControlPanel::ControlPanel(QWidget* parent) : QWidget(parent), ui(new Ui::ControlPanel) {
    ui->setupUi(this);
    // A styled background for the panel's rounded dark box.
    setAttribute(Qt::WA_StyledBackground, true);
    fillFrameRateLimits(frameRateMap);

    ui->label_capture_mode->show();
    ui->comboBox_mode->show();
    ui->pushButton_trigger->show();
    ui->radioButton_manual->setChecked(true);
    setupEditors();
    ui->pushButton_trigger->setEnabled(false);
    ui->checkBox_mean_filter->hide();
    ui->checkbox_tof_frequency->show();
    ui->widget_contrast->hide();
    controlPanelInit();
    connectParameterHandlers();
    connectCaptureModes();
    connect(ui->pushButton_save_config, &QPushButton::clicked, this, &ControlPanel::filteringDefaultConfiguration);
    connect(ui->pushButton_save_to_device, &QPushButton::clicked, this, &ControlPanel::saveTheConfigurationToDevice);
    saveControls_ = new SaveControls(this, ui->pushButton_savepath, ui->pushButton_save, ui->pushButton_start_save,
                                     ui->pushButton_end_save, ui->label_save_count);
    connect(saveControls_, &SaveControls::prompt, this, &ControlPanel::prompt);
    updateEnabled();
}

ControlPanel::~ControlPanel() { delete ui; }

void ControlPanel::setupEditors() {
    for (const EditorSetup& e : kEditors) {
        SliderEditer* editor = ui->*e.editor;
        editor->setCheckBoxVisible(e.checkBox);
        editor->setRange(e.min, e.max);
        editor->setValue(e.initial);
    }
    setEditorLabels();
}

void ControlPanel::setEditorLabels() {
    int widest = 0;
    for (const EditorSetup& e : kEditors) widest = std::max(widest, (ui->*e.editor)->setLabelText(e.label));
    // One label width for all rows so the sliders line up in a column.
    for (const EditorSetup& e : kEditors) (ui->*e.editor)->setLabelWidth(widest);
    fitWidth();
}

void ControlPanel::fitWidth() {
    // Wide enough for the widest row in the current language, with the
    // margins and the vertical scroll bar beside it.
    QWidget* contents = ui->scrollAreaWidgetContents;
    // New label widths reach the row layouts through posted layout requests;
    // take them in first, or the rows would be measured at their old widths.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
    if (contents->layout()) contents->layout()->activate();
    const QMargins outer = layout()->contentsMargins();
    const int scrollBar = ui->scrollArea_kz->verticalScrollBar()->sizeHint().width();
    const int needed = contents->minimumSizeHint().width() + outer.left() + outer.right() + scrollBar +
                       2 * ui->scrollArea_kz->frameWidth();
    setFixedWidth(std::max(kPanelWidth, needed));
}

void ControlPanel::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    setEditorLabels();
}

void ControlPanel::controlPanelInit() {
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

void ControlPanel::retranslate() {
    ui->retranslateUi(this);
    saveControls_->retranslate();
    setEditorLabels();
}

void ControlPanel::setControlIsEnable(bool on) {
    controlsOn_ = on;
    for (const EditorSetup& e : kEditors) (ui->*e.editor)->setEnable(on);
    updateEnabled();
}

void ControlPanel::setCaptureMode(bool on) {
    // Models without trigger input run free: their trigger and delay
    // controls are hidden rather than shown disabled.
    for (QWidget* w : std::initializer_list<QWidget*>{ui->label_capture_mode, ui->comboBox_mode, ui->pushButton_trigger,
                                                      ui->label_delay, ui->spinBox_ms, ui->label_ms, ui->spinBox_us,
                                                      ui->label_us, ui->pushButton_set_time})
        w->setVisible(on);
}

void ControlPanel::switchUi(bool isRGB) {
    for (QWidget* w : std::initializer_list<QWidget*>{ui->widget_brightness, ui->widget_rgb_manual_exposure,
                                                      ui->radioButton_rgb_auto, ui->radioButton_rgb_manual})
        w->setVisible(isRGB);
    ui->widget_contrast->hide();
}

void ControlPanel::updateEnabled() {
    // Off while the session opens or stops the camera, while a lost link is
    // being recovered (no setting can reach the camera), and while a mode
    // change the panel sent is still running.
    setEnabled(controlsOn_ && !status_.busy && status_.state != SessionState::Recovering && holds_ == 0);
}

void ControlPanel::applySessionStatus(const SessionStatus& status) {
    status_ = status;
    updateEnabled();
}

void ControlPanel::applySessionEvent(SessionEvent event, const SessionStatus& status) {
    status_ = status;
    switch (event) {
        case SessionEvent::ControlsOn:
            controlsOn_ = true;
            for (SliderEditer* editor :
                 {ui->widget_exposure_time, ui->widget_max_color_mapping, ui->widget_min_color_mapping,
                  ui->widget_rgb_manual_exposure, ui->widget_rgb_maximum_exposure_time, ui->widget_brightness,
                  ui->widget_contrast, ui->widget_gamma_value, ui->widget_fps})
                editor->setEnable(true);
            ui->pushButton_end_save->setEnabled(false);
            ui->pushButton_start_save->setEnabled(true);
            break;
        case SessionEvent::ControlsOff:
            setControlIsEnable(false);
            break;
        case SessionEvent::ControlsReleased: {
            // Nothing of this may reach the camera that is being left.
            controlsOn_ = false;
            const QSignalBlocker blockPanel(this);
            for (const EditorSetup& e : kEditors) {
                const QSignalBlocker block(ui->*e.editor);
                (ui->*e.editor)->setEnable(false);
            }
            for (SliderEditer* filter : {ui->widget_fly_filter, ui->widget_kalman_filter, ui->widget_time_filter,
                                         ui->widget_confidence_filter}) {
                const QSignalBlocker block(filter);
                filter->setChecked(false);
                filter->setEnable(false);
            }
            break;
        }
        case SessionEvent::ReadBack:
            readConfigurationFromDevice();
            break;
        case SessionEvent::StreamStarted:
            if (status.device.model) {
                if (status.device.model->known) setCaptureMode(status.device.model->triggerControls);
                switchUi(status.device.model->rgbLayout);
            }
            emitColourRange();
            break;
        default:
            break;
    }
    updateEnabled();
}

void ControlPanel::submit(CameraScript script) {
    if (!script.empty()) emit cameraScript(script);
}

void ControlPanel::submitHolding(CameraScript script) {
    if (script.empty()) return;
    ++holds_;
    updateEnabled();
    const CameraScript::Finished previous = script.finished();
    script.onFinished(this, [this, previous](const ScriptOutcome& outcome) {
        if (previous) previous(outcome);
        --holds_;
        updateEnabled();
    });
    emit cameraScript(script);
}

void ControlPanel::commitColourRange(int minDistance, int maxDistance) {
    SliderEditer* minEditor = ui->widget_min_color_mapping;
    SliderEditer* maxEditor = ui->widget_max_color_mapping;
    const bool maxFirst = minDistance > maxEditor->value();
    if (maxFirst && maxDistance != maxEditor->value()) maxEditor->commitValue(maxDistance);
    if (minDistance != minEditor->value()) minEditor->commitValue(minDistance);
    if (!maxFirst && maxDistance != maxEditor->value()) maxEditor->commitValue(maxDistance);
}

void ControlPanel::emitColourRange(bool cloud) {
    emit colourRangeChanged(ui->widget_min_color_mapping->value(), ui->widget_max_color_mapping->value(), cloud);
}
