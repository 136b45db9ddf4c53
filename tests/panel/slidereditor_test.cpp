// Behaviour of the numeric editor as the control panel relies on it: what the
// user commits is reported exactly once, what the program sets never is.
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QSignalSpy>
#include <QSlider>
#include <QTest>

#include "slidereditor.h"

namespace {

struct Editor {
    SliderEditer w;
    QSlider* slider = w.findChild<QSlider*>("horizontalSlider");
    QLineEdit* edit = w.findChild<QLineEdit*>("lineEdit");
    QCheckBox* box = w.findChild<QCheckBox*>("checkBox");
    QSignalSpy changed{&w, &SliderEditer::ValChanged};
    QSignalSpy enabled{&w, &SliderEditer::IsEnable};
    QSignalSpy checked{&w, &SliderEditer::IsCheck};

    Editor(int min, int max) {
        w.resize(348, 47);
        w.setRange(min, max);
        w.show();
        // Focus moves (and the second editingFinished they cause) need an
        // active window, also on the offscreen platform.
        QApplication::setActiveWindow(&w);
        EXPECT_TRUE(QTest::qWaitForWindowActive(&w));
        slider->resize(200, 22);
    }
    void releaseAt(double ratio) {
        QTest::mouseRelease(slider, Qt::LeftButton, {}, QPoint(int(ratio * slider->width()), 5));
    }
    void typeAndEnter(const QString& text) {
        edit->setFocus();
        edit->setText(text);
        QTest::keyClick(edit, Qt::Key_Return);
    }
};

TEST(SliderEditerRules, ReleaseRatioMapsToValue) {
    EXPECT_EQ(SliderEditer::valueAtRatio(1, 20, 0.5), 10);     // 10.5 truncated
    EXPECT_EQ(SliderEditer::valueAtRatio(1, 20, 0.995), 20);   // last hundredth snaps
    EXPECT_EQ(SliderEditer::valueAtRatio(1, 20, 0.99), 19);    // 19.81, not snapped
    EXPECT_EQ(SliderEditer::valueAtRatio(100, 15000, 1.3), 15000);
    EXPECT_EQ(SliderEditer::valueAtRatio(0, 255, 0.0), 0);
}

TEST(SliderEditerRules, FieldLengthIsDigitsOfMaximum) {
    EXPECT_EQ(SliderEditer::digitCount(4000), 4);
    EXPECT_EQ(SliderEditer::digitCount(4), 1);
    EXPECT_EQ(SliderEditer::digitCount(15000), 5);
    EXPECT_EQ(SliderEditer::digitCount(0), 0);
    Editor e(6, 4000);
    EXPECT_EQ(e.edit->maxLength(), 4);
}

TEST(SliderEditerWidget, DisabledEditorIgnoresReleases) {
    Editor e(1, 20);
    e.releaseAt(0.5);
    EXPECT_EQ(e.changed.count(), 0);
    EXPECT_EQ(e.w.value(), 1);
}

TEST(SliderEditerWidget, ReleaseCommitsValueAndJumpsHandle) {
    Editor e(1, 20);
    e.w.setEnable(true);
    e.releaseAt(0.5);
    ASSERT_EQ(e.changed.count(), 1);
    EXPECT_EQ(e.changed.at(0).at(0).toInt(), 10);
    EXPECT_EQ(e.edit->text(), "10");
    e.releaseAt(0.999);
    EXPECT_EQ(e.changed.last().at(0).toInt(), 20);
    e.releaseAt(-0.2);  // released left of the track: clamped to the minimum
    EXPECT_EQ(e.w.value(), 1);
}

TEST(SliderEditerWidget, DragOnlyPreviews) {
    Editor e(1, 20);
    e.w.setEnable(true);
    e.slider->setSliderDown(true);
    e.slider->setSliderPosition(7);  // emits sliderMoved as a drag does
    EXPECT_EQ(e.edit->text(), "7");
    EXPECT_EQ(e.changed.count(), 0);
}

TEST(SliderEditerWidget, TypedValueIsClampedAndReportedOnce) {
    Editor e(100, 15000);
    e.w.setEnable(true);
    e.typeAndEnter("20000");
    EXPECT_EQ(e.w.value(), 15000);
    EXPECT_EQ(e.edit->text(), "15000");
    // Enter, then the focus moving to the slider: two commits, one signal.
    ASSERT_EQ(e.changed.count(), 1);
    EXPECT_EQ(e.changed.at(0).at(0).toInt(), 15000);
    e.typeAndEnter("");
    EXPECT_EQ(e.w.value(), 100);  // empty text reads as 0, clamped
    EXPECT_EQ(e.changed.count(), 2);
}

TEST(SliderEditerWidget, FocusLossCommitShiftsParity) {
    Editor e(1, 150);
    e.w.setEnable(true);
    e.edit->setFocus();
    e.edit->setText("30");
    emit e.edit->editingFinished();  // one commit by focus loss alone
    EXPECT_EQ(e.changed.count(), 1);
    // The Enter pair now lands on counts 2 and 3: the value is taken but
    // only the focus-move half is reported.
    e.typeAndEnter("40");
    EXPECT_EQ(e.w.value(), 40);
    EXPECT_EQ(e.changed.count(), 2);
    e.typeAndEnter("50");  // counts 4 and 5
    EXPECT_EQ(e.changed.count(), 3);
}

TEST(SliderEditerWidget, SetValueIsSilentAndShowsUnclamped) {
    Editor e(100, 15000);
    e.w.setValue(5000);
    EXPECT_EQ(e.w.value(), 5000);
    e.w.setValue(20000);
    EXPECT_EQ(e.w.value(), 15000);
    EXPECT_EQ(e.edit->text(), "20000");
    EXPECT_EQ(e.changed.count(), 0);
}

TEST(SliderEditerWidget, CheckBoxProgramVersusUser) {
    Editor e(1, 4);
    e.w.setChecked(true);
    EXPECT_TRUE(e.w.isChecked());
    EXPECT_TRUE(e.slider->isEnabled());
    e.w.setChecked(false);
    EXPECT_FALSE(e.slider->isEnabled());
    EXPECT_FALSE(e.edit->isEnabled());
    ASSERT_EQ(e.enabled.count(), 2);
    EXPECT_FALSE(e.enabled.last().at(0).toBool());
    EXPECT_EQ(e.checked.count(), 0);  // only a user click reports IsCheck

    e.box->click();
    EXPECT_TRUE(e.slider->isEnabled());
    ASSERT_EQ(e.checked.count(), 1);
    EXPECT_TRUE(e.checked.at(0).at(0).toBool());
    EXPECT_EQ(e.enabled.count(), 3);
    e.releaseAt(0.999);
    EXPECT_EQ(e.changed.count(), 1);  // enabled by the click: accepts input
}

TEST(SliderEditerWidget, ValidatorRejectsNonDigits) {
    Editor e(0, 255);
    e.w.setEnable(true);
    e.edit->setFocus();
    e.edit->clear();
    QTest::keyClicks(e.edit, "-1a2");
    EXPECT_EQ(e.edit->text(), "12");
}

TEST(SliderEditerWidget, NewEditorIsDisabledUntilItsOwnerEnablesIt) {
    SliderEditer w;
    auto* slider = w.findChild<QSlider*>("horizontalSlider");
    auto* edit = w.findChild<QLineEdit*>("lineEdit");
    EXPECT_FALSE(slider->isEnabled());
    EXPECT_FALSE(edit->isEnabled());
    EXPECT_EQ(edit->text(), "0");
    EXPECT_EQ(slider->singleStep(), 0);  // arrows and groove clicks do not move it
    EXPECT_EQ(slider->pageStep(), 0);
    EXPECT_FALSE(slider->hasTracking());
    w.setRange(1, 4);
    EXPECT_EQ(edit->text(), "1");  // the slider clamped its 0 to the new minimum
    EXPECT_EQ(edit->maxLength(), 1);
}

TEST(SliderEditerWidget, SetEnableLeavesTheCheckBoxAlone) {
    Editor e(1, 63);
    e.w.setEnable(true);
    EXPECT_FALSE(e.w.isChecked());
    EXPECT_TRUE(e.slider->isEnabled());
    EXPECT_EQ(e.checked.count(), 0);
    e.w.setChecked(true);
    e.w.setEnable(false);
    EXPECT_TRUE(e.w.isChecked());
    EXPECT_FALSE(e.edit->isEnabled());
    e.releaseAt(0.5);  // switched off again: releases are ignored
    EXPECT_EQ(e.changed.count(), 0);
    ASSERT_EQ(e.enabled.count(), 3);
    EXPECT_FALSE(e.enabled.last().at(0).toBool());
}

TEST(SliderEditerWidget, ReleaseNearTheRightEndSelectsTheMaximum) {
    Editor e(6, 4000);
    e.w.setEnable(true);
    e.slider->resize(1000, 22);
    QTest::mouseRelease(e.slider, Qt::LeftButton, {}, QPoint(995, 5));  // 99.5%
    EXPECT_EQ(e.w.value(), 4000);
    QTest::mouseRelease(e.slider, Qt::LeftButton, {}, QPoint(990, 5));  // 99.0%: not snapped
    EXPECT_EQ(e.w.value(), 6 + int(3994 * 0.99));
    EXPECT_EQ(e.changed.count(), 2);
}

TEST(SliderEditerWidget, LabelIsSizedToItsText) {
    Editor e(1, 20);
    auto* label = e.w.findChild<QLabel*>("label");
    const int w = e.w.setLabelText("Frame Rate Setting");
    EXPECT_EQ(label->text(), "Frame Rate Setting");
    EXPECT_EQ(label->minimumWidth(), w);
    EXPECT_EQ(label->maximumWidth(), w);
    EXPECT_GT(w, e.w.setLabelText("fps"));
    e.w.setLabelWidth(180);
    EXPECT_EQ(label->maximumWidth(), 180);
}

}  // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
