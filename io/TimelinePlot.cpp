#include "io/TimelinePlot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <limits>

namespace {

constexpr int kMarginLeft = 72;
constexpr int kMarginRight = 24;
constexpr int kMarginTop = 36;
constexpr int kMarginBottom = 74; // axis labels and the legend row
constexpr int kTargetTicks = 8;

// Colours that stay apart on white and for the common colour-vision deficiencies.
constexpr const char* kPalette[] = {"#0072b2", "#d55e00", "#009e73", "#cc79a7",
                                    "#e69f00", "#56b4e9", "#000000", "#f0e442"};

const char* Colour(size_t index) {
    return kPalette[index % std::size(kPalette)];
}

std::string Escape(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '&':
            out += "&amp;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string Pixel(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

// A tick step of 1, 2 or 5 times a power of ten giving about kTargetTicks ticks over span.
double TickStep(double span) {
    const double raw = span / kTargetTicks;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= raw) {
            return factor * power;
        }
    }
    return 10.0 * power;
}

using Attributes = std::initializer_list<std::pair<const char*, std::string>>;

void AppendAttributes(std::string& out, const char* name, Attributes attributes) {
    out += '<';
    out += name;
    for (const auto& [key, value] : attributes) {
        out += ' ';
        out += key;
        out += "=\"";
        out += value;
        out += '"';
    }
}

// An opening tag; the caller closes it.
void Open(std::string& out, const char* name, Attributes attributes) {
    AppendAttributes(out, name, attributes);
    out += ">\n";
}

// A whole element; body is markup already escaped.
void Element(std::string& out, const char* name, Attributes attributes,
             const std::string& body = {}) {
    AppendAttributes(out, name, attributes);
    if (body.empty()) {
        out += "/>\n";
        return;
    }
    out += '>';
    out += body;
    out += "</";
    out += name;
    out += ">\n";
}

} // namespace

// Maps times and values to pixels inside the plot area.
class CTimelinePlot::CFrame {
public:
    CFrame(int width, int height, SRange time, SRange value)
        : m_Left(kMarginLeft), m_Right(width - kMarginRight), m_Top(kMarginTop),
          m_Bottom(height - kMarginBottom), m_Time(time), m_Value(value) {}

    double X(double t) const {
        return m_Left + (t - m_Time.m_Low) / (m_Time.m_High - m_Time.m_Low) * (m_Right - m_Left);
    }
    double Y(double v) const {
        return m_Bottom -
               (v - m_Value.m_Low) / (m_Value.m_High - m_Value.m_Low) * (m_Bottom - m_Top);
    }
    int Left() const { return m_Left; }
    int Right() const { return m_Right; }
    int Top() const { return m_Top; }
    int Bottom() const { return m_Bottom; }
    const SRange& Time() const { return m_Time; }
    const SRange& Value() const { return m_Value; }

private:
    int m_Left;
    int m_Right;
    int m_Top;
    int m_Bottom;
    SRange m_Time;
    SRange m_Value;
};

void CTimelinePlot::SetAxisLabels(std::string time, std::string value) {
    m_TimeLabel = std::move(time);
    m_ValueLabel = std::move(value);
}

void CTimelinePlot::SetSize(int width, int height) {
    m_Width = std::max(width, 200);
    m_Height = std::max(height, 120);
}

bool CTimelinePlot::AddSeries(std::string name, std::vector<double> times,
                              std::vector<double> values, bool step) {
    if (times.size() != values.size()) {
        return false;
    }
    m_Series.push_back(SSeries{std::move(name), std::move(times), std::move(values), step});
    return true;
}

void CTimelinePlot::AddThreshold(std::string name, double value) {
    m_Thresholds.push_back(SThreshold{std::move(name), value});
}

void CTimelinePlot::AddIntervals(std::string name, std::vector<Span> spans) {
    m_Intervals.push_back(SIntervals{std::move(name), std::move(spans)});
}

void CTimelinePlot::AddEvents(std::string name, std::vector<double> times) {
    m_Events.push_back(SEvents{std::move(name), std::move(times)});
}

CTimelinePlot::SRange CTimelinePlot::TimeRange() const {
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    auto take = [&](double t) {
        if (std::isfinite(t)) {
            low = std::min(low, t);
            high = std::max(high, t);
        }
    };
    for (const SSeries& series : m_Series) {
        std::for_each(series.m_Times.begin(), series.m_Times.end(), take);
    }
    for (const SIntervals& intervals : m_Intervals) {
        for (const Span& span : intervals.m_Spans) {
            take(span.first);
            take(span.second);
        }
    }
    for (const SEvents& events : m_Events) {
        std::for_each(events.m_Times.begin(), events.m_Times.end(), take);
    }
    if (!(low < high)) {
        return std::isfinite(low) ? SRange{low - 0.5, low + 0.5} : SRange{0.0, 1.0};
    }
    return SRange{low, high};
}

CTimelinePlot::SRange CTimelinePlot::ValueRange() const {
    double low = 0.0; // levels read best against their zero
    double high = -std::numeric_limits<double>::infinity();
    auto take = [&](double v) {
        if (std::isfinite(v)) {
            low = std::min(low, v);
            high = std::max(high, v);
        }
    };
    for (const SSeries& series : m_Series) {
        std::for_each(series.m_Values.begin(), series.m_Values.end(), take);
    }
    for (const SThreshold& threshold : m_Thresholds) {
        take(threshold.m_Value);
    }
    if (!(low < high)) {
        return SRange{low - 1.0, low + 1.0};
    }
    return SRange{low, high + (high - low) * 0.05};
}

void CTimelinePlot::RenderIntervals(const CFrame& frame, std::string& out) const {
    size_t colour = m_Series.size();
    for (const SIntervals& intervals : m_Intervals) {
        Open(out, "g", {{"fill", Colour(colour++)}, {"fill-opacity", "0.18"}});
        for (const Span& span : intervals.m_Spans) {
            const double from = frame.X(span.first);
            const double to = span.second < span.first ? frame.Right() : frame.X(span.second);
            Element(out, "rect",
                    {{"x", Pixel(from)},
                     {"y", Pixel(frame.Top())},
                     {"width", Pixel(std::max(to - from, 1.0))},
                     {"height", Pixel(frame.Bottom() - frame.Top())}});
        }
        out += "</g>\n";
    }
}

namespace {

// The points of one series in pixels; a step series holds each value until the next time.
std::vector<std::pair<double, double>> SeriesPixels(const std::vector<double>& times,
                                                    const std::vector<double>& values, bool step,
                                                    const auto& frame) {
    std::vector<std::pair<double, double>> points;
    points.reserve(times.size() * (step ? 2 : 1));
    for (size_t i = 0; i < times.size(); ++i) {
        if (step && i > 0) {
            points.emplace_back(frame.X(times[i]), frame.Y(values[i - 1]));
        }
        points.emplace_back(frame.X(times[i]), frame.Y(values[i]));
    }
    return points;
}

// Polylines of the points, with gaps at non-finite values. When there are more points than
// pixel columns, each column keeps its first, lowest, highest and last point, which draws the
// same picture.
std::vector<std::vector<std::pair<double, double>>>
Polylines(const std::vector<std::pair<double, double>>& points, int columns) {
    std::vector<std::vector<std::pair<double, double>>> lines(1);
    const bool thin = static_cast<int>(points.size()) > 4 * columns;
    long column = std::numeric_limits<long>::min();
    size_t first = 0;
    for (const auto& point : points) {
        if (!std::isfinite(point.first) || !std::isfinite(point.second)) {
            if (!lines.back().empty()) {
                lines.emplace_back();
            }
            column = std::numeric_limits<long>::min();
            continue;
        }
        std::vector<std::pair<double, double>>& line = lines.back();
        const long here = std::lround(point.first);
        if (!thin || here != column) {
            column = here;
            first = line.size();
            line.push_back(point);
            continue;
        }
        // Same column: keep first, lowest, highest, last (screen y grows downwards).
        if (line.size() - first < 4) {
            line.push_back(point);
            continue;
        }
        auto begin = line.begin() + static_cast<long>(first);
        auto low = std::max_element(begin + 1, line.end(), [](const auto& a, const auto& b) {
            return a.second < b.second;
        });
        auto high = std::min_element(begin + 1, line.end(), [](const auto& a, const auto& b) {
            return a.second < b.second;
        });
        const std::pair<double, double> keep[] = {*begin, *low, *high, point};
        line.resize(first);
        line.insert(line.end(), std::begin(keep), std::end(keep));
    }
    if (lines.back().empty()) {
        lines.pop_back();
    }
    return lines;
}

} // namespace

void CTimelinePlot::RenderSeries(const CFrame& frame, std::string& out) const {
    const int columns = frame.Right() - frame.Left();
    for (size_t i = 0; i < m_Series.size(); ++i) {
        const SSeries& series = m_Series[i];
        const auto points = SeriesPixels(series.m_Times, series.m_Values, series.m_Step, frame);
        Open(out, "g",
             {{"fill", "none"},
              {"stroke", Colour(i)},
              {"stroke-width", "1.4"},
              {"stroke-linejoin", "round"}});
        for (const auto& line : Polylines(points, columns)) {
            std::string list;
            for (const auto& point : line) {
                list += Pixel(point.first);
                list += ',';
                list += Pixel(point.second);
                list += ' ';
            }
            Element(out, "polyline", {{"points", list}});
        }
        out += "</g>\n";
    }
}

void CTimelinePlot::RenderMarks(const CFrame& frame, std::string& out) const {
    size_t colour = m_Series.size() + m_Intervals.size();
    for (const SThreshold& threshold : m_Thresholds) {
        const std::string y = Pixel(frame.Y(threshold.m_Value));
        Element(out, "line",
                {{"x1", Pixel(frame.Left())},
                 {"x2", Pixel(frame.Right())},
                 {"y1", y},
                 {"y2", y},
                 {"stroke", Colour(colour++)},
                 {"stroke-dasharray", "6 4"},
                 {"stroke-width", "1.2"}});
    }
    for (const SEvents& events : m_Events) {
        const char* stroke = Colour(colour++);
        for (double t : events.m_Times) {
            const std::string x = Pixel(frame.X(t));
            Element(out, "line",
                    {{"x1", x},
                     {"x2", x},
                     {"y1", Pixel(frame.Top())},
                     {"y2", Pixel(frame.Bottom())},
                     {"stroke", stroke},
                     {"stroke-width", "1.2"}},
                    "<title>" + Escape(events.m_Name) + " at " + Number(t) + "</title>");
        }
    }
}

void CTimelinePlot::RenderLegend(std::string& out) const {
    enum class EStyle { Line, Band, Dash };
    std::vector<std::pair<const std::string*, EStyle>> entries;
    for (const SSeries& series : m_Series) {
        entries.emplace_back(&series.m_Name, EStyle::Line);
    }
    for (const SIntervals& intervals : m_Intervals) {
        entries.emplace_back(&intervals.m_Name, EStyle::Band);
    }
    for (const SThreshold& threshold : m_Thresholds) {
        entries.emplace_back(&threshold.m_Name, EStyle::Dash);
    }
    for (const SEvents& events : m_Events) {
        entries.emplace_back(&events.m_Name, EStyle::Line);
    }
    double x = kMarginLeft;
    const double y = m_Height - 16;
    for (size_t i = 0; i < entries.size(); ++i) {
        const auto& [name, style] = entries[i];
        if (style == EStyle::Band) {
            Element(out, "rect",
                    {{"x", Pixel(x)},
                     {"y", Pixel(y - 9)},
                     {"width", "22"},
                     {"height", "12"},
                     {"fill", Colour(i)},
                     {"fill-opacity", "0.3"}});
        } else {
            Element(out, "line",
                    {{"x1", Pixel(x)},
                     {"x2", Pixel(x + 22)},
                     {"y1", Pixel(y - 3)},
                     {"y2", Pixel(y - 3)},
                     {"stroke", Colour(i)},
                     {"stroke-width", "2"},
                     {"stroke-dasharray", style == EStyle::Dash ? "6 4" : "none"}});
        }
        Element(out, "text", {{"x", Pixel(x + 28)}, {"y", Pixel(y)}}, Escape(*name));
        x += 44 + 7.0 * static_cast<double>(name->size());
    }
}

void CTimelinePlot::RenderAxes(const CFrame& frame, std::string& out) const {
    const SRange& time = frame.Time();
    const SRange& value = frame.Value();
    const double timeStep = TickStep(time.m_High - time.m_Low);
    const double valueStep = TickStep(value.m_High - value.m_Low);
    std::string labels;
    Open(out, "g", {{"stroke", "#e4e4e4"}, {"stroke-width", "1"}});
    const auto firstTime = static_cast<long long>(std::ceil(time.m_Low / timeStep));
    for (long long k = firstTime; k * timeStep <= time.m_High + timeStep * 1e-9; ++k) {
        const double t = static_cast<double>(k) * timeStep;
        const std::string x = Pixel(frame.X(t));
        Element(out, "line",
                {{"x1", x}, {"x2", x}, {"y1", Pixel(frame.Top())}, {"y2", Pixel(frame.Bottom())}});
        Element(labels, "text",
                {{"x", x}, {"y", Pixel(frame.Bottom() + 16)}, {"text-anchor", "middle"}},
                Number(t));
    }
    const auto firstValue = static_cast<long long>(std::ceil(value.m_Low / valueStep));
    for (long long k = firstValue; k * valueStep <= value.m_High + valueStep * 1e-9; ++k) {
        const double v = static_cast<double>(k) * valueStep;
        const std::string y = Pixel(frame.Y(v));
        Element(out, "line",
                {{"x1", Pixel(frame.Left())}, {"x2", Pixel(frame.Right())}, {"y1", y}, {"y2", y}});
        Element(labels, "text",
                {{"x", Pixel(frame.Left() - 6)}, {"y", y}, {"dy", "4"}, {"text-anchor", "end"}},
                Number(v));
    }
    out += "</g>\n";
    out += labels;
    Element(out, "text",
            {{"x", Pixel((frame.Left() + frame.Right()) / 2.0)},
             {"y", Pixel(frame.Bottom() + 34)},
             {"text-anchor", "middle"}},
            Escape(m_TimeLabel));
    Element(out, "text",
            {{"transform",
              "translate(16," + Pixel((frame.Top() + frame.Bottom()) / 2.0) + ") rotate(-90)"},
             {"text-anchor", "middle"}},
            Escape(m_ValueLabel));
}

std::string CTimelinePlot::Render() const {
    const CFrame frame(m_Width, m_Height, TimeRange(), ValueRange());
    std::string out;
    const std::string width = std::to_string(m_Width);
    const std::string height = std::to_string(m_Height);
    Open(out, "svg",
         {{"xmlns", "http://www.w3.org/2000/svg"},
          {"width", width},
          {"height", height},
          {"viewBox", "0 0 " + width + " " + height},
          {"font-family", "sans-serif"},
          {"font-size", "12"}});
    Element(out, "rect", {{"width", "100%"}, {"height", "100%"}, {"fill", "white"}});
    Element(
        out, "text",
        {{"x", Pixel(m_Width / 2.0)}, {"y", "22"}, {"text-anchor", "middle"}, {"font-size", "15"}},
        Escape(m_Title));
    RenderAxes(frame, out);
    RenderIntervals(frame, out);
    RenderSeries(frame, out);
    RenderMarks(frame, out);
    Element(out, "rect",
            {{"x", Pixel(frame.Left())},
             {"y", Pixel(frame.Top())},
             {"width", Pixel(frame.Right() - frame.Left())},
             {"height", Pixel(frame.Bottom() - frame.Top())},
             {"fill", "none"},
             {"stroke", "#555"},
             {"stroke-width", "1"}});
    RenderLegend(out);
    out += "</svg>\n";
    return out;
}

bool CTimelinePlot::Write(const std::string& path, std::string* error) const {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) {
        *error = "cannot open '" + path + "' for writing";
        return false;
    }
    const std::string text = Render();
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    if (!file) {
        *error = "cannot write '" + path + "'";
        return false;
    }
    return true;
}
