// CProgressLine: one terminal line that shows how far a long offline run has come: the position
// in the input, the speed relative to real time and the time left, redrawn in place.
//
// Short runs stay silent: the line appears only once a run has taken a second of wall time, and
// is redrawn at most four times a second. Finish ends it with a line break, leaving the final
// figures on screen. Times are passed in (wall-clock seconds), so the line is tested without a
// clock; where the text goes (a terminal, nowhere) is the owner's choice.
#pragma once

#include <functional>
#include <string>

class CProgressLine {
public:
    using Writer = std::function<void(const std::string&)>;

    CProgressLine(std::string name, Writer write, double delaySeconds = 1.0,
                  double intervalSeconds = 0.25);

    // A run starts at position (seconds of the input) at the wall-clock time wallNow.
    void Start(double wallNow, double position);
    // Redraws the line when it is due. duration 0: unknown (no percentage, no time left).
    void Update(double wallNow, double position, double duration);
    // Draws the final figures and ends the line, if one was drawn.
    void Finish(double wallNow, double position, double duration);
    bool IsShown() const { return m_Shown; }

    // The line's text, without the carriage return and padding.
    static std::string Format(const std::string& name, double position, double duration,
                              double speed);

private:
    void Draw(double wallNow, double position, double duration);

    std::string m_Name;
    Writer m_Write;
    double m_Delay;
    double m_Interval;
    double m_StartWall = 0.0;
    double m_StartPosition = 0.0;
    double m_LastDraw = 0.0;
    std::size_t m_LastLength = 0;
    bool m_Running = false;
    bool m_Shown = false;
};
