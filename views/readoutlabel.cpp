#include "readoutlabel.h"

#include <QPaintEvent>
#include <QPainter>
#include <QStyle>
#include <QTextDocument>
#include <algorithm>

ReadoutLabel::ReadoutLabel(QWidget* parent) : QLabel(parent) { setAttribute(Qt::WA_OpaquePaintEvent); }

int ReadoutLabel::estimatedWidth(const QString& text) const {
    const QFontMetrics metrics = fontMetrics();
    int width = 0;
    for (const QChar c : text) width += metrics.horizontalAdvance(c);
    return width;
}

bool ReadoutLabel::fits(const QString& text) const {
    // Whole-pixel advances add up a little wider than the shaped text the
    // layout sized the label for: a text fits when its estimate is no wider
    // than the room or than the estimate of a text the room was made for.
    const int estimate = estimatedWidth(text);
    return estimate <= contentsRect().width() - 2 * margin() || (hasFixedSize() && estimate <= keptEstimate_);
}

bool ReadoutLabel::setReadout(const QString& text) {
    if (text == this->text()) return false;
    if (!keepsRoom_) {
        setText(text);
        return true;
    }
    bool laidOut = false;
    if (keepSizeWhenLaidOut_ && !hasFixedSize() && isVisible() && width() >= sizeHint().width()) {
        // The layout has given the last wide text its room: keep that room.
        // The geometry stays as it is, so this layout pass moves nothing. A
        // hidden label still has the size it was made with, not a laid-out one.
        keepSizeWhenLaidOut_ = false;
        keptEstimate_ = std::max(keptEstimate_, estimatedWidth(this->text()));
        setFixedSize(size());
        laidOut = true;
    }
    if (hasFixedSize() && fits(text)) {
        // A fixed-size widget's setText leaves its parent's layout alone.
        setText(text);
        return laidOut;
    }
    freeSize();
    setText(text);
    keepSizeWhenLaidOut_ = true;
    return true;
}

void ReadoutLabel::setKeepsRoom(bool on) {
    keepsRoom_ = on;
    if (!on) freeSize();
}

void ReadoutLabel::freeSize() {
    if (!hasFixedSize()) return;
    keptEstimate_ = 0;
    setMinimumSize(0, 0);
    setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
}

bool ReadoutLabel::hasFixedSize() const { return minimumSize() == maximumSize(); }

void ReadoutLabel::paintEvent(QPaintEvent* event) {
    QWidget* parent = parentWidget();
    const bool plainText =
        textFormat() == Qt::PlainText || (textFormat() == Qt::AutoText && !Qt::mightBeRichText(text()));
    if (!parent || !plainText || indent() >= 0 || frameWidth() > 0 || hasSelectedText()) {
        if (parent) {
            QPainter painter(this);
            painter.fillRect(event->rect(), parent->palette().brush(parent->backgroundRole()));
        }
        QLabel::paintEvent(event);
        return;
    }
    // What QLabel draws for a plain text without frame or indent, with one
    // painter and without the style sheet's frame and palette look-ups. The
    // parent's background is one flat colour under the label (it sits inside
    // the rounded corners).
    QPainter painter(this);
    painter.fillRect(event->rect(), parent->palette().brush(parent->backgroundRole()));
    const Qt::LayoutDirection direction = text().isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight;
    const int flags = int(QStyle::visualAlignment(direction, alignment())) | Qt::TextExpandTabs |
                      (direction == Qt::LeftToRight ? Qt::TextForceLeftToRight : Qt::TextForceRightToLeft);
    const int m = margin();
    style()->drawItemText(&painter, contentsRect().adjusted(m, m, -m, -m), flags, palette(), isEnabled(), text(),
                          foregroundRole());
}
