#include <gtest/gtest.h>

#include "CameraSettings.h"

namespace d3sim {
namespace {

struct LimitRow {
    int fps, tofMax, rgbMax;
};

class ExposureLimitTest : public ::testing::TestWithParam<LimitRow> {};

TEST_P(ExposureLimitTest, MatchesTableRow) {
    const LimitRow row = GetParam();
    const ExposureLimit limit = exposureLimitForFps(row.fps);
    EXPECT_EQ(limit.tofMaxUs, row.tofMax) << "fps " << row.fps;
    EXPECT_EQ(limit.rgbMaxUs, row.rgbMax) << "fps " << row.fps;
}

// Every step of the ToF column and the RGB column's ends and neighbours,
// plus the clamped rates on both sides of 1..25.
INSTANTIATE_TEST_SUITE_P(Rows, ExposureLimitTest,
                         ::testing::Values(LimitRow{1, 4000, 10000}, LimitRow{2, 4000, 5000}, LimitRow{3, 4000, 4000},
                                           LimitRow{4, 4000, 3000}, LimitRow{5, 4000, 2500}, LimitRow{6, 2000, 2200},
                                           LimitRow{7, 2000, 1900}, LimitRow{8, 2000, 1600}, LimitRow{9, 2000, 1300},
                                           LimitRow{10, 2000, 1250}, LimitRow{11, 1300, 1210}, LimitRow{12, 1300, 1170},
                                           LimitRow{13, 1300, 1130}, LimitRow{14, 1300, 1090}, LimitRow{15, 1300, 1050},
                                           LimitRow{16, 1000, 1010}, LimitRow{17, 1000, 970}, LimitRow{18, 1000, 930},
                                           LimitRow{19, 1000, 890}, LimitRow{20, 1000, 625}, LimitRow{21, 1000, 625},
                                           LimitRow{25, 1000, 625}, LimitRow{26, 1000, 625}, LimitRow{30, 1000, 625},
                                           LimitRow{0, 4000, 10000}, LimitRow{-5, 4000, 10000}));

}  // namespace
}  // namespace d3sim
