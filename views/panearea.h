// The four live panes (depth, IR, point cloud, colour) in their 2 x 2 grid:
// showing and hiding them with their boxes, maximising one (button or
// double-click) and restoring the others, and sharing the space among the
// panes shown. Panes are numbered 1 depth, 2 IR, 3 point cloud, 4 colour.
#pragma once

#include <QWidget>
#include <array>

#include "sessionstate.h"

class CloudPoint;
class DepthHistogramView;
class GraphicsView;
class QCheckBox;
class ReadoutLabel;

namespace Ui {
class PaneArea;
}

class PaneArea : public QWidget {
    Q_OBJECT
public:
    explicit PaneArea(QWidget* parent = nullptr);
    ~PaneArea() override;

    // The boxes that show and hide the panes, in pane order; they live in
    // the management panel.
    void setPaneCheckBoxes(const std::array<QCheckBox*, 4>& boxes);
    void retranslate();

    GraphicsView* depthView() const;
    GraphicsView* irView() const;
    GraphicsView* rgbView() const;
    CloudPoint* cloudView() const;
    // Under the depth picture; hidden until asked for.
    DepthHistogramView* depthHistogram() const { return histogram_; }
    ReadoutLabel* valueLabel(int pane) const;  // read-out under the depth, IR or colour pane
    ReadoutLabel* fpsLabel(int pane) const;
    QWidget* pane(int x) const;
    QCheckBox* paneCheckBox(int x) const;
    // Index 1..4 of the pane shown alone, 0 when none is maximised.
    int maximizedPane() const { return maximizedPane_; }

public slots:
    void setHide(int x);
    void setShow(int x);
    void setProportion();
    void swapAction();
    void resetMinSzie();
    void maximizePane(int x);
    void restorePanes();
    void restoreDefaultLayout();
    // The colour pane exists only for cameras with a colour sensor.
    void setColourPaneAvailable(bool available);
    void applySessionEvent(SessionEvent event, const SessionStatus& status);

signals:
    // A pane's box changed (by the user or the program).
    void paneChecked(int x, bool checked);

private:
    void onPaneCheckBox(int x, bool checked);
    // A double-click asks for its pane alone, and again for the others back.
    void toggleMaximized(int x);

    Ui::PaneArea* ui;
    std::array<QCheckBox*, 4> boxes_{};
    int maximizedPane_ = 0;
    bool colourPane_ = true;
    DepthHistogramView* histogram_ = nullptr;
};
