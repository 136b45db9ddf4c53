// Value rules of the control panel: the frame-rate limit table, the filter
// value conversions both ways and the read-back corrections.
#include "panelrules.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>

#include "exposurelimits.h"

namespace {

struct LimitRow {
    int fps;
    int tofMax;
    int rgbMax;
};

class ExposureLimitsTest : public ::testing::TestWithParam<LimitRow> {};

TEST_P(ExposureLimitsTest, RowOfTheTable) {
    FrameRateLimits map;
    fillFrameRateLimits(map);
    const LimitRow row = GetParam();
    const PanelRules::ExposureLimits got = PanelRules::exposureLimits(map, row.fps);
    EXPECT_EQ(got.tofMax, row.tofMax) << "fps " << row.fps;
    EXPECT_EQ(got.rgbMax, row.rgbMax) << "fps " << row.fps;
}

// Every band edge of the ToF column and a spread of the RGB column, the rows
// past the editor's top (21..25) and rates outside the table.
INSTANTIATE_TEST_SUITE_P(Table, ExposureLimitsTest,
                         ::testing::Values(LimitRow{1, 4000, 10000}, LimitRow{2, 4000, 5000}, LimitRow{5, 4000, 2500},
                                           LimitRow{6, 2000, 2200}, LimitRow{9, 2000, 1300}, LimitRow{10, 2000, 1250},
                                           LimitRow{11, 1300, 1210}, LimitRow{15, 1300, 1050}, LimitRow{16, 1000, 1010},
                                           LimitRow{19, 1000, 890}, LimitRow{20, 1000, 625}, LimitRow{21, 1000, 625},
                                           LimitRow{25, 1000, 625}, LimitRow{30, 1000, 625}, LimitRow{0, 4000, 10000},
                                           LimitRow{-3, 4000, 10000}));

TEST(ExposureLimits, TableHasExactlyTheRatesOneToTwentyFive) {
    FrameRateLimits map;
    map.insert(99, qMakePair(1, 1));  // filling replaces what was there
    fillFrameRateLimits(map);
    EXPECT_EQ(map.size(), 25);
    EXPECT_FALSE(map.contains(99));
    EXPECT_FALSE(map.contains(0));
    EXPECT_TRUE(map.contains(25));
}

TEST(ExposureLimits, EmptyTableGivesZeroLimits) {
    const PanelRules::ExposureLimits got = PanelRules::exposureLimits(FrameRateLimits(), 10);
    EXPECT_EQ(got.tofMax, 0);
    EXPECT_EQ(got.rgbMax, 0);
}

struct KernelCase {
    float kernel;
    int timeEditor;
    int spatialIndex;
};

class FilterReadBackTest : public ::testing::TestWithParam<KernelCase> {};

TEST_P(FilterReadBackTest, KernelToControls) {
    const KernelCase c = GetParam();
    EXPECT_EQ(PanelRules::timeEditorValue(c.kernel), c.timeEditor) << c.kernel;
    EXPECT_EQ(PanelRules::spatialComboIndex(c.kernel), c.spatialIndex) << c.kernel;
}

INSTANTIATE_TEST_SUITE_P(Kernels, FilterReadBackTest,
                         ::testing::Values(KernelCase{3, 1, 0}, KernelCase{5, 2, 1}, KernelCase{7, 3, 2},
                                           KernelCase{9, 4, 2},     // time 9 -> 4; spatial kept on "3"
                                           KernelCase{4, 1, 0},     // even sizes truncate
                                           KernelCase{6.5f, 2, 1},  // fractional values truncate
                                           KernelCase{1, 0, 0},     // below "1" stays on "1"
                                           KernelCase{0, 0, 0}));

TEST(FilterValues, EditorValueRoundTripsThroughKernel) {
    for (int v = 1; v <= 4; ++v) {
        EXPECT_EQ(PanelRules::kernelSize(v), 2.0f * v + 1);
        EXPECT_EQ(PanelRules::timeEditorValue(PanelRules::kernelSize(v)), v);
    }
    for (int item = 1; item <= 3; ++item)
        EXPECT_EQ(PanelRules::spatialComboIndex(PanelRules::kernelSize(item)), item - 1);
}

// Kernels and values from files and cameras can be anything: nothing
// overflows, and what cannot be shown saturates.
TEST(FilterValues, ExtremeValuesSaturateInsteadOfOverflowing) {
    EXPECT_EQ(PanelRules::kernelSize(INT_MAX), float(2.0 * INT_MAX + 1));
    EXPECT_EQ(PanelRules::kernelSize(INT_MIN), float(2.0 * INT_MIN + 1));
    EXPECT_EQ(PanelRules::timeEditorValue(1e30f), INT_MAX);
    EXPECT_EQ(PanelRules::timeEditorValue(-1e30f), INT_MIN);
    EXPECT_EQ(PanelRules::timeEditorValue(std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_EQ(PanelRules::spatialComboIndex(1e30f), 2);
    EXPECT_EQ(PanelRules::spatialComboIndex(-std::numeric_limits<float>::infinity()), 0);
    EXPECT_EQ(PanelRules::saturatingInt(3.9), 3);
    EXPECT_EQ(PanelRules::saturatingInt(-3.9), -3);
}

TEST(FilterValues, CheckBoxKernelDiffersFromComboForItemThree) {
    EXPECT_EQ(PanelRules::spatialKernelForCheckBox("1"), 3.0f);
    EXPECT_EQ(PanelRules::spatialKernelForCheckBox("2"), 5.0f);
    EXPECT_EQ(PanelRules::spatialKernelForCheckBox("3"), 5.0f);
    EXPECT_EQ(PanelRules::kernelSize(3), 7.0f);
}

TEST(FilterValues, LogTextUsesShortestNumbers) {
    EXPECT_EQ(PanelRules::filterLogText(true, 7.0f), QString("1 7"));
    EXPECT_EQ(PanelRules::filterLogText(false, 15.0f), QString("0 15"));
    EXPECT_EQ(PanelRules::filterLogText(true, 2.5f), QString("1 2.5"));
}

TEST(ReadBack, FrameRateAboveTheEditorShowsItsTop) {
    EXPECT_EQ(PanelRules::frameRateForEditor(25), 20);
    EXPECT_EQ(PanelRules::frameRateForEditor(30), 20);
    EXPECT_EQ(PanelRules::frameRateForEditor(20), 20);
    EXPECT_EQ(PanelRules::frameRateForEditor(24), 24);  // only the two camera rates are mapped
    EXPECT_EQ(PanelRules::frameRateForEditor(1), 1);
}

TEST(ReadBack, ZeroExposureMeansFastMode) {
    EXPECT_EQ(PanelRules::exposureForEditor(0), 6);
    EXPECT_EQ(PanelRules::exposureForEditor(1500), 1500);
    EXPECT_EQ(PanelRules::exposureForEditor(3), 3);  // shown as read, the editor clamps its slider
    EXPECT_TRUE(PanelRules::isFastModeExposure(0));
    EXPECT_FALSE(PanelRules::isFastModeExposure(6));
}

TEST(FrameRateLimits, TableCoversOneToTwentyFiveFramesPerSecond) {
    FrameRateLimits map;
    map.insert(99, qMakePair(1, 1));
    fillFrameRateLimits(map);
    EXPECT_FALSE(map.contains(99)) << "the table is rebuilt from scratch";
    EXPECT_EQ(map.size(), 25);
    const std::pair<int, QPair<int, int>> rows[] = {
        {1, {4000, 10000}}, {2, {4000, 5000}},  {5, {4000, 2500}},  {6, {2000, 2200}},
        {10, {2000, 1250}}, {11, {1300, 1210}}, {15, {1300, 1050}}, {16, {1000, 1010}},
        {19, {1000, 890}},  {20, {1000, 625}},  {21, {1000, 625}},  {25, {1000, 625}},
    };
    for (const auto& [fps, limits] : rows) EXPECT_EQ(map.value(fps), limits) << fps;
    for (int fps = 2; fps <= 25; ++fps) {
        EXPECT_LE(map.value(fps).first, map.value(fps - 1).first) << fps;
        EXPECT_LE(map.value(fps).second, map.value(fps - 1).second) << fps;
    }
}

}  // namespace
