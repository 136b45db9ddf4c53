// Draws what the frame workers prepared into the panes (the pictures, the
// value under the last click, the frame rates, tray outlines) and hands point
// frames to the 3D view. Also switches the views between the plain and the
// registered frames, and shows the figures the workers compute about each
// frame: the depth histogram and the statistics of a dragged-out region.
// GUI thread only.
#pragma once

#include <QObject>
#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "camerascript.h"
#include "frameanalysis.h"
#include "framerecords.h"
#include "sessionstate.h"

class Acquisition;
class DepthHistogramView;
class FrameItem;
class GraphicsView;
class ImageConverter;
class PaneArea;
class QGraphicsScene;
class QTableWidget;

class FrameDisplay : public QObject {
    Q_OBJECT
public:
    FrameDisplay(PaneArea& panes, Acquisition& acquisition, ImageConverter& converter, QTableWidget* trayTable,
                 QObject* parent = nullptr);
    ~FrameDisplay() override;

    // Frames drawn per pane: 1 depth, 2 IR, 3 point-cloud hand-offs, 4 colour.
    unsigned paintedFrames(int pane) const { return painted_[std::size_t(pane & 3)].load(); }
    // Frames whose histogram or region figures were shown.
    unsigned figuresShown() const { return figuresShown_; }
    // When the frame of the picture last handed to a 2D pane (0 colour,
    // 1 depth, 2 IR) was ready in the camera library; for latency measures.
    std::chrono::steady_clock::time_point shownFrameReady(int pane) const { return shownReady_[std::size_t(pane & 3)]; }

public slots:
    void paintDepSlots();
    void paintIRSlots();
    void paintRgbSlots();
    // Outlines a tray with its id on the IR picture.
    void drawRect(int id, PalletArea rect);
    // Trays to outline on the IR picture and list in the table, from the next
    // IR frame on; none by default.
    void setTrayAreas(const std::vector<TrayArea>& areas);
    // Depth colouring limits in millimetres; the point cloud takes them too
    // when `cloud` is set.
    void setColourRange(int minDistance, int maxDistance, bool cloud);
    // The registration chosen in the display group: the workers switch their
    // read, the views the sizes they expect, the camera both conversions.
    void applyRegistration(bool rgbToDepth, bool depthToRgb, bool colouredCloud);
    void setColouredCloud(bool on);
    // The registration a configuration file asks for (the stream is stopped):
    // the workers and views are switched now, the camera's conversion calls
    // come back as a script whose results nobody judges.
    CameraScript importedRegistration(bool rgbToDepth, bool depthToRgb, bool colouredCloud);
    void applySessionEvent(SessionEvent event, const SessionStatus& status);
    // The depth histogram under the depth picture; the workers count depths
    // only while it is shown.
    void showHistogram(bool on);
    // Region statistics, live from the next frame on, of a rectangle of one
    // picture (corners in its pixels); one region at a time.
    void setRegion(RegionSource source, int x1, int y1, int x2, int y2);
    void clearRegion();

signals:
    void cameraScript(const CameraScript& script);
    // The trays of an IR frame just drawn.
    void traysShown(const std::vector<TrayArea>& trays);

private:
    struct Panes;
    void resizeImageViewsForMode();
    void showFigures();
    FrameItem* regionItem(RegionSource source);

    PaneArea& panes_;
    Acquisition& acquisition_;
    ImageConverter& converter_;
    QTableWidget* trayTable_;
    QGraphicsScene* sceneIR_;
    QGraphicsScene* sceneRgb_;
    QGraphicsScene* sceneDep_;
    std::unique_ptr<Panes> state_;
    QSize colourSize_;
    std::array<std::atomic<unsigned>, 4> painted_{};
    DepthHistogramView* histogram_;
    unsigned figuresShown_ = 0;
    std::array<std::chrono::steady_clock::time_point, 4> shownReady_{};
};
