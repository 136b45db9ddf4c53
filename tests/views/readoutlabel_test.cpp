#include "readoutlabel.h"

#include <gtest/gtest.h>

#include <QHBoxLayout>
#include <QImage>
#include <QWidget>
#include <memory>

#include "qtapp.h"

namespace {

// Counts the layout passes its parent is asked for.
class LayoutRequests : public QObject {
public:
    int count = 0;

protected:
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == QEvent::LayoutRequest) ++count;
        return false;
    }
};

// A pane header: the read-out, then a stretch, like the panes' own.
class ReadoutLabelTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { qtApp(); }

    void SetUp() override {
        pane = std::make_unique<QWidget>();
        pane->setStyleSheet(QStringLiteral("QWidget { background: rgb(53, 53, 53); color: #DCDCDC; }"));
        auto* layout = new QHBoxLayout(pane.get());
        label = new ReadoutLabel(pane.get());
        label->setText(QStringLiteral("depth"));
        layout->addWidget(label);
        layout->addStretch();
        pane->resize(400, 40);
        pane->show();
        pane->installEventFilter(&requests);
        settle();
    }

    // Runs the layout passes asked for so far, as the event loop would.
    void settle() { QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest); }

    // Shows a wide text and lets the label keep the room the layout gives it.
    void keepRoomFor(const QString& wide) {
        label->setReadout(wide);
        settle();
        label->setReadout(QStringLiteral("1"));
        settle();
        ASSERT_TRUE(label->hasFixedSize());
        requests.count = 0;
    }

    std::unique_ptr<QWidget> pane;
    ReadoutLabel* label = nullptr;
    LayoutRequests requests;
};

TEST_F(ReadoutLabelTest, TextsThatFitTheRoomKeptChangeNoLayout) {
    keepRoomFor(QStringLiteral("88888mm"));
    const QSize kept = label->size();
    for (const char* text : {"3515mm", "987mm", "88888mm", "0mm"}) {
        EXPECT_FALSE(label->setReadout(QString::fromLatin1(text))) << text;
        settle();
        EXPECT_EQ(label->text(), QString::fromLatin1(text));
    }
    EXPECT_EQ(requests.count, 0);
    EXPECT_EQ(label->size(), kept);
    // The same text again is no change at all.
    EXPECT_FALSE(label->setReadout(QStringLiteral("0mm")));
}

TEST_F(ReadoutLabelTest, AWiderTextGetsTheRoomItNeeds) {
    keepRoomFor(QStringLiteral("10"));
    const QString wide = QStringLiteral("rgb(255,255,255)");
    EXPECT_FALSE(label->fits(wide));
    EXPECT_TRUE(label->setReadout(wide));
    settle();
    const int wideWidth = label->sizeHint().width();
    EXPECT_GE(label->width(), wideWidth);
    // From then on that room is kept, and the wide text fits it.
    label->setReadout(QStringLiteral("rgb(1,2,3)"));
    settle();
    EXPECT_TRUE(label->hasFixedSize());
    EXPECT_GE(label->width(), wideWidth);
    EXPECT_TRUE(label->fits(wide));
    requests.count = 0;
    EXPECT_FALSE(label->setReadout(wide));
    settle();
    EXPECT_EQ(requests.count, 0);
}

TEST_F(ReadoutLabelTest, AHiddenLabelKeepsNoRoom) {
    // Hidden, it has the size it was made with, which no layout gave it.
    pane->hide();
    label->setReadout(QStringLiteral("0fps"));
    settle();
    label->setReadout(QStringLiteral("1fps"));
    settle();
    EXPECT_FALSE(label->hasFixedSize());
    pane->show();
    settle();
    label->setReadout(QStringLiteral("20fps"));
    settle();
    label->setReadout(QStringLiteral("9fps"));
    EXPECT_TRUE(label->hasFixedSize());
}

TEST_F(ReadoutLabelTest, ALabelThatKeepsNoRoomFollowsItsText) {
    keepRoomFor(QStringLiteral("20fps"));
    label->setKeepsRoom(false);
    EXPECT_FALSE(label->hasFixedSize());
    for (const char* text : {"9fps", "25fps", "0fps"}) {
        EXPECT_TRUE(label->setReadout(QString::fromLatin1(text)));
        settle();
        EXPECT_FALSE(label->hasFixedSize());
        EXPECT_EQ(label->width(), label->sizeHint().width()) << text;
    }
}

TEST_F(ReadoutLabelTest, FreedLabelIsSizedByTheLayoutAgain) {
    keepRoomFor(QStringLiteral("10"));
    label->setText(QStringLiteral("a caption wider than any value"));
    label->freeSize();
    settle();
    EXPECT_FALSE(label->hasFixedSize());
    EXPECT_GE(label->width(), label->sizeHint().width());
}

TEST_F(ReadoutLabelTest, PaintsItsParentsBackgroundUnderTheText) {
    label->setReadout(QStringLiteral("42"));
    settle();
    const QImage image = label->grab().toImage();
    ASSERT_FALSE(image.isNull());
    const QColor background = pane->palette().color(pane->backgroundRole());
    EXPECT_EQ(QColor(image.pixel(image.width() - 1, 0)), background);
    EXPECT_EQ(QColor(image.pixel(image.width() - 1, image.height() - 1)), background);
    // And the text itself in the foreground colour somewhere.
    bool text = false;
    for (int y = 0; y < image.height() && !text; ++y)
        for (int x = 0; x < image.width() && !text; ++x) text = QColor(image.pixel(x, y)) != background;
    EXPECT_TRUE(text);
}

}  // namespace
