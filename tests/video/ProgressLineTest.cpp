#include "video/ProgressLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(ProgressLine, FormatShowsPositionShareSpeedAndTimeLeft) {
    const struct {
        double m_Position, m_Duration, m_Speed;
        const char* m_Text;
    } cases[] = {
        {12.3, 30.0, 2.0, "clip.mp4  00:12.3 / 00:30.0 (41%)  2.0x real time  00:08.8 left"},
        {62.0, 0.0, 3.0, "clip.mp4  01:02.0  3.0x real time"},      // length unknown
        {3723.0, 7200.0, 0.0, "clip.mp4  1:02:03 / 2:00:00 (51%)"}, // no speed yet
        {31.0, 30.0, 1.0, "clip.mp4  00:31.0 / 00:30.0 (100%)  1.0x real time  00:00.0 left"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CProgressLine::Format("clip.mp4", c.m_Position, c.m_Duration, c.m_Speed),
                  c.m_Text);
    }
}

// Short runs print nothing; long ones redraw one line a few times a second and end it once.
TEST(ProgressLine, AppearsAfterASecondRedrawsInPlaceAndEndsOnce) {
    std::vector<std::string> written;
    CProgressLine line("a.mkv", [&](const std::string& text) { written.push_back(text); });
    line.Start(100.0, 0.0);
    line.Update(100.5, 5.0, 60.0);
    line.Finish(100.9, 9.0, 60.0);
    EXPECT_TRUE(written.empty()) << "a run shorter than the delay stays silent";

    line.Start(200.0, 0.0);
    for (int tenth = 1; tenth <= 25; ++tenth) {
        line.Update(200.0 + tenth / 10.0, tenth, 60.0);
    }
    // Drawn at 1.0, 1.3 (0.25 s later, on the tenths), 1.6, 1.9, 2.2, 2.5 s.
    ASSERT_EQ(written.size(), 6u);
    EXPECT_EQ(written[0], "\r" + CProgressLine::Format("a.mkv", 10.0, 60.0, 10.0));
    EXPECT_TRUE(line.IsShown());
    line.Finish(203.0, 60.0, 60.0);
    ASSERT_EQ(written.size(), 8u);
    EXPECT_EQ(written.back(), "\n");
    EXPECT_FALSE(line.IsShown());
}

} // namespace
