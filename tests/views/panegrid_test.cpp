// Arithmetic of the four-pane grid.
#include "panegrid.h"

#include <gtest/gtest.h>

namespace {

TEST(ViewLayout, ProportionsFollowTheVisiblePanes) {
    struct Case {
        bool ir, cp, dep;
        std::optional<GridStretch> expected;
    };
    const Case cases[] = {
        {true, true, true, GridStretch{1, 1, 1, 1}},
        {false, true, true, GridStretch{1, 1, 0, 0}},
        {false, true, false, GridStretch{0, 0, 0, 0}},
        {true, false, true, GridStretch{0, 0, 1, 1}},
        {false, false, true, GridStretch{0, 0, 0, 0}},
        {true, true, false, std::nullopt},
        {true, false, false, std::nullopt},
        {false, false, false, std::nullopt},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(proportionFor(c.ir, c.cp, c.dep), c.expected) << c.ir << c.cp << c.dep;
    }
}

TEST(ViewLayout, CellSizeIsHalfOfTheAreaLessFrameSpacingAndMargins) {
    EXPECT_EQ(paneCellSize(QSize(1000, 800), 6, 6, QMargins(0, 0, 0, 0)), QSize(491, 391));
    // Odd remainders are dropped by the integer division.
    EXPECT_EQ(paneCellSize(QSize(1001, 801), 5, 7, QMargins(1, 2, 3, 4)),
              QSize((1001 - 12 - 5 - 4) / 2, (801 - 12 - 7 - 6) / 2));
}

}  // namespace
