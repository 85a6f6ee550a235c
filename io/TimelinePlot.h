// CTimelinePlot: a timeline chart written as an SVG file, so that a user sees levels,
// thresholds, detected intervals and events of a run without a plotting tool.
//
//     CTimelinePlot plot;
//     plot.SetTitle("Motion level");
//     plot.AddSeries("level", times, levels, false);
//     plot.AddThreshold("threshold", 3.0);
//     plot.AddIntervals("motion", {{12.0, 19.5}});
//     plot.AddEvents("start", {12.0});
//     std::string error;
//     if (!plot.Write("level.svg", &error)) ...
//
// Times are on the horizontal axis in the caller's unit (the axis label says which). A series
// with more points than the plot has pixel columns is drawn as its per-column minimum and maximum,
// so a day of samples still gives a small file that shows every peak. Non-finite values are gaps.
#pragma once

#include <string>
#include <utility>
#include <vector>

class CTimelinePlot {
public:
    // A closed span [first, second] of time; a second below first is drawn open to the right end.
    using Span = std::pair<double, double>;

    void SetTitle(std::string title) { m_Title = std::move(title); }
    void SetAxisLabels(std::string time, std::string value);
    // Width and height of the whole picture in pixels (at least 200 x 120).
    void SetSize(int width, int height);

    // A line through (times[i], values[i]); with step set the value holds until the next time.
    // Answers false when the two lists differ in length.
    bool AddSeries(std::string name, std::vector<double> times, std::vector<double> values,
                   bool step);
    // A horizontal line at value.
    void AddThreshold(std::string name, double value);
    // Shaded bands over the whole height.
    void AddIntervals(std::string name, std::vector<Span> spans);
    // Vertical marks.
    void AddEvents(std::string name, std::vector<double> times);

    // The SVG text of the plot.
    std::string Render() const;
    // Writes Render() to path; on failure answers false with the reason in *error.
    bool Write(const std::string& path, std::string* error) const;

private:
    struct SSeries {
        std::string m_Name;
        std::vector<double> m_Times;
        std::vector<double> m_Values;
        bool m_Step;
    };
    struct SThreshold {
        std::string m_Name;
        double m_Value;
    };
    struct SIntervals {
        std::string m_Name;
        std::vector<Span> m_Spans;
    };
    struct SEvents {
        std::string m_Name;
        std::vector<double> m_Times;
    };
    struct SRange {
        double m_Low;
        double m_High;
    };
    class CFrame;

    SRange TimeRange() const;
    SRange ValueRange() const;
    void RenderAxes(const CFrame& frame, std::string& out) const;
    void RenderIntervals(const CFrame& frame, std::string& out) const;
    void RenderSeries(const CFrame& frame, std::string& out) const;
    void RenderMarks(const CFrame& frame, std::string& out) const;
    void RenderLegend(std::string& out) const;

    std::string m_Title;
    std::string m_TimeLabel = "time (s)";
    std::string m_ValueLabel;
    int m_Width = 1000;
    int m_Height = 420;
    std::vector<SSeries> m_Series;
    std::vector<SThreshold> m_Thresholds;
    std::vector<SIntervals> m_Intervals;
    std::vector<SEvents> m_Events;
};
