// A label whose text follows every frame (a value under the cursor, a frame
// rate) in a pane's header. A QLabel repaints and asks its parent's layout to
// run again on every setText, and being see-through it has its parent and the
// whole window repainted under it: at 25 frames a second in three panes that
// was most of the viewer's painting work. This one keeps the room it has once
// had (a fixed size skips the layout), grows it only when a text is wider,
// and paints its own background in its parent's colour so it repaints alone.
// The kept room is for labels left of a stretch, whose text starts where a
// fitted label's would; a label that changes seldom can do without it.
#pragma once

#include <QLabel>

class ReadoutLabel : public QLabel {
    Q_OBJECT
public:
    explicit ReadoutLabel(QWidget* parent = nullptr);

    // Shows `text`; nothing at all when it is already shown. Returns whether
    // the label's layout had to run for it (a text wider than ever before).
    bool setReadout(const QString& text);

    // Whether `text` fits the room the label keeps, judged without shaping
    // it (from per-character advances).
    bool fits(const QString& text) const;

    // Off: every text change is laid out as a QLabel's is (for a label
    // whose text changes seldom, or that is not pinned to its left edge).
    void setKeepsRoom(bool on);

    // Lets the layout size the label again, for texts set with setText
    // (the form's captions when the language changes).
    void freeSize();
    bool hasFixedSize() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    int estimatedWidth(const QString& text) const;

    bool keepsRoom_ = true;
    bool keepSizeWhenLaidOut_ = false;
    int keptEstimate_ = 0;  // of the widest text the kept room was laid out for
};
