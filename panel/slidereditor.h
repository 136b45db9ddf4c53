// Composite numeric editor: optional check box, label, slider and number field
// in one row. It reports a value only when the user commits one (slider
// released, or number entered), never while dragging, and never for changes
// the program makes through its setters, so those cannot echo to the camera.
#pragma once

#include <QWidget>

class QRegExpValidator;
namespace Ui {
class Form;
}

class SliderEditer : public QWidget {
    Q_OBJECT
public:
    explicit SliderEditer(QWidget* parent = nullptr);
    ~SliderEditer() override;

    int setLabelText(QString text);
    void setLabelWidth(int w);
    void setRange(int min, int max);
    void setValue(int v);
    int value() const;
    bool isChecked() const;
    void setCheckBoxVisible(bool on);
    void setChecked(bool on);
    void setEnable(bool on);
    // A value committed from elsewhere in the window (a histogram handle) as
    // if the user had entered it here: clamped to the range, shown, and
    // reported with ValChanged. Refused (false) while the editor takes no input.
    bool commitValue(int v);

    // Digits of max, as the field's maximum length (0 for max == 0).
    static int digitCount(int max);
    // Slider value for a release at ratio of the track: the last hundredth
    // snaps to the maximum so the top value is easy to hit.
    static int valueAtRatio(int min, int max, double ratio);

signals:
    void ValChanged(int val);
    void IsEnable(bool is);
    void IsCheck(bool is);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void onEditingFinished();
    void onSliderMoved(int v);
    void onCheckClicked(bool checked);

    Ui::Form* ui;
    QRegExpValidator* validator;
    int editCommitCount = 0;
    bool enabledFlag = false;
    int currentValue = 0;
};
