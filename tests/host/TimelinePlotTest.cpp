#include "io/TimelinePlot.h"

#include <gtest/gtest.h>

#include <cmath>
#include <regex>
#include <string>

namespace {

// Every y coordinate of the first polyline of the plot.
std::vector<double> PolylineYs(const std::string& svg) {
    std::vector<double> ys;
    const auto start = svg.find("<polyline points=\"");
    const auto end = svg.find('"', start + 18);
    const std::string points = svg.substr(start + 18, end - start - 18);
    const std::regex pair(R"(([-0-9.]+),([-0-9.]+))");
    for (auto it = std::sregex_iterator(points.begin(), points.end(), pair);
         it != std::sregex_iterator(); ++it) {
        ys.push_back(std::stod((*it)[2]));
    }
    return ys;
}

} // namespace

TEST(TimelinePlot, LongSeriesIsThinnedButKeepsEveryPeak) {
    std::vector<double> times;
    std::vector<double> values;
    for (int i = 0; i < 200000; ++i) {
        times.push_back(i);
        values.push_back(i == 123457 ? 100.0 : 1.0); // one spike among 200,000 samples
    }
    CTimelinePlot plot;
    ASSERT_TRUE(plot.AddSeries("level", times, values, false));
    const std::string svg = plot.Render();
    const std::vector<double> ys = PolylineYs(svg);
    EXPECT_LT(ys.size(), 5000u);
    // The spike is the topmost point of the picture: y at the top of the plot area.
    EXPECT_NEAR(*std::min_element(ys.begin(), ys.end()),
                36.0 + (420 - 74 - 36) * (1 - 100 / 104.95), 1.0);
}

TEST(TimelinePlot, RefusesSeriesOfUnequalLengthsAndEscapesNames) {
    CTimelinePlot plot;
    EXPECT_FALSE(plot.AddSeries("x", {1, 2}, {1}, false));
    plot.SetTitle("a < b & c");
    plot.AddIntervals("motion", {{1.0, -1.0}});
    const std::string svg = plot.Render();
    EXPECT_NE(svg.find("a &lt; b &amp; c"), std::string::npos);
    EXPECT_EQ(svg.find("a < b"), std::string::npos);
}

TEST(TimelinePlot, NonFiniteValuesBreakTheLine) {
    CTimelinePlot plot;
    ASSERT_TRUE(plot.AddSeries("v", {0, 1, 2, 3, 4}, {1, 2, NAN, 3, 4}, false));
    const std::string svg = plot.Render();
    size_t lines = 0;
    for (size_t at = svg.find("<polyline"); at != std::string::npos;
         at = svg.find("<polyline", at + 1)) {
        ++lines;
    }
    EXPECT_EQ(lines, 2u);
    EXPECT_EQ(svg.find("nan"), std::string::npos);
}
