// The pane item: a private copy of each frame in a buffer kept across frames,
// the read-out cross and the tray rectangles as they appear on screen.
#include "frameitem.h"

#include <gtest/gtest.h>

#include <QGraphicsScene>
#include <QPainter>

#include "qtapp.h"

namespace {

QImage filled(QSize size, QRgb colour) {
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

// The scene drawn 1:1 into an image of the frame's size.
QImage render(QGraphicsScene& scene, QSize size) {
    QImage out(size, QImage::Format_RGB32);
    out.fill(Qt::black);
    QPainter painter(&out);
    scene.render(&painter, QRectF(QPointF(0, 0), QSizeF(size)), QRectF(QPointF(0, 0), QSizeF(size)));
    return out;
}

TEST(FrameItem, KeepsAPrivateCopyInOneBuffer) {
    qtApp();
    FrameItem item;
    EXPECT_FALSE(item.hasFrame());
    QImage source = filled(QSize(640, 480), qRgb(10, 20, 30));
    item.setFrame(source);
    ASSERT_TRUE(item.hasFrame());
    const uchar* buffer = item.frame().constBits();
    EXPECT_NE(buffer, source.constBits());

    // The worker overwrites its image after the hand-off; the pane keeps
    // what it was given.
    source.fill(qRgb(200, 0, 0));
    EXPECT_EQ(item.frame().pixel(5, 5), qRgb(10, 20, 30));

    // Same size: copied into the same buffer.
    item.setFrame(source);
    EXPECT_EQ(item.frame().constBits(), buffer);
    EXPECT_EQ(item.frame().pixel(639, 479), qRgb(200, 0, 0));

    // A resolution switch takes a buffer of the new size, and the item's
    // area follows it.
    item.setFrame(filled(QSize(1920, 1080), qRgb(1, 2, 3)));
    EXPECT_EQ(item.frame().size(), QSize(1920, 1080));
    EXPECT_GE(item.boundingRect().width(), 1920);
    EXPECT_GE(item.boundingRect().height(), 1080);
    EXPECT_EQ(item.frame().pixel(1919, 1079), qRgb(1, 2, 3));
}

// A scene cleared on disconnect deletes its item; the next stream's item
// takes over the old one's buffer instead of allocating megabytes again.
TEST(FrameItem, HandsItsBufferToTheNextItem) {
    qtApp();
    QGraphicsScene scene;
    auto* first = new FrameItem;
    scene.addItem(first);
    first->setFrame(filled(QSize(1920, 1080), qRgb(1, 2, 3)));
    const uchar* buffer = first->frame().constBits();
    QImage storage = first->takeFrame();
    EXPECT_FALSE(first->hasFrame());
    EXPECT_EQ(storage.constBits(), buffer);
    scene.clear();

    FrameItem next;
    next.reuseStorage(std::move(storage));
    next.setFrame(filled(QSize(1920, 1080), qRgb(4, 5, 6)));
    EXPECT_EQ(next.frame().constBits(), buffer);
    EXPECT_EQ(next.frame().pixel(1919, 1079), qRgb(4, 5, 6));
    // An item with a picture of its own keeps it.
    next.reuseStorage(filled(QSize(8, 8), qRgb(0, 0, 0)));
    EXPECT_EQ(next.frame().constBits(), buffer);
    // Storage of another size is replaced by the frame's.
    FrameItem other;
    other.reuseStorage(filled(QSize(8, 8), qRgb(0, 0, 0)));
    other.setFrame(filled(QSize(640, 480), qRgb(7, 8, 9)));
    EXPECT_EQ(other.frame().size(), QSize(640, 480));
    EXPECT_EQ(other.frame().pixel(639, 479), qRgb(7, 8, 9));
}

TEST(FrameItem, DrawsCrossAndTrayRectangles) {
    qtApp();
    QGraphicsScene scene;
    auto* item = new FrameItem;
    scene.addItem(item);
    const QSize size(200, 150);
    item->setFrame(filled(size, qRgb(0, 0, 255)));
    item->setMarker(QPointF(100, 50), Qt::white, QStringLiteral("1234"));
    EXPECT_EQ(item->markerText(), QStringLiteral("1234"));

    QImage out = render(scene, size);
    // The cross reaches 7 px to each side of the point, and no further.
    EXPECT_EQ(out.pixel(93, 50), qRgb(255, 255, 255));
    EXPECT_EQ(out.pixel(107, 50), qRgb(255, 255, 255));
    EXPECT_EQ(out.pixel(100, 43), qRgb(255, 255, 255));
    EXPECT_EQ(out.pixel(100, 57), qRgb(255, 255, 255));
    EXPECT_EQ(out.pixel(91, 50), qRgb(0, 0, 255));
    EXPECT_EQ(out.pixel(100, 40), qRgb(0, 0, 255));
    // Far from the marker the frame shows unchanged.
    EXPECT_EQ(out.pixel(10, 140), qRgb(0, 0, 255));

    PalletArea area;
    area.left = 20;
    area.top = 80;
    area.right = 60;
    area.bottom = 120;
    item->addRect(3, area);
    EXPECT_EQ(item->rectCount(), 1);
    out = render(scene, size);
    EXPECT_EQ(out.pixel(40, 120), qRgb(255, 0, 0));  // bottom edge
    EXPECT_EQ(out.pixel(60, 100), qRgb(255, 0, 0));  // right edge
    EXPECT_EQ(out.pixel(20, 100), qRgb(255, 0, 0));  // left edge
    EXPECT_EQ(out.pixel(40, 100), qRgb(0, 0, 255));  // inside stays the frame

    // Rectangles last one frame: the next paint starts from none.
    item->clearRects();
    out = render(scene, size);
    EXPECT_EQ(out.pixel(40, 120), qRgb(0, 0, 255));
}

}  // namespace
