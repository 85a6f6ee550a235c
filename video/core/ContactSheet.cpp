#include "video/core/ContactSheet.h"

#include "video/core/Drawing.h"

#include <algorithm>
#include <cstdio>

SZorSheetLayout ZorSheetLayout(int count, int columns, int thumbWidth, int thumbHeight) {
    SZorSheetLayout layout;
    count = std::max(count, 1);
    layout.m_Columns = std::clamp(columns, 1, count);
    const int rows = (count + layout.m_Columns - 1) / layout.m_Columns;
    // Captions grow with the thumbnails so that they stay readable on large sheets.
    layout.m_CaptionScale = std::max(1, thumbWidth / 160);
    layout.m_Margin = 4 * layout.m_CaptionScale;
    layout.m_CellWidth = thumbWidth;
    layout.m_CellHeight = thumbHeight + ZorTextHeight(layout.m_CaptionScale) + layout.m_Margin;
    layout.m_Width = layout.m_Margin + layout.m_Columns * (layout.m_CellWidth + layout.m_Margin);
    layout.m_Height = layout.m_Margin + rows * (layout.m_CellHeight + layout.m_Margin);
    return layout;
}

std::string ZorTimeCaption(long long milliseconds) {
    const bool negative = milliseconds < 0;
    const long long tenths = (negative ? -milliseconds : milliseconds) / 100;
    const long long seconds = tenths / 10;
    char text[48];
    if (seconds >= 3600) {
        std::snprintf(text, sizeof(text), "%s%lld:%02lld:%02lld.%lld", negative ? "-" : "",
                      seconds / 3600, seconds / 60 % 60, seconds % 60, tenths % 10);
    } else {
        std::snprintf(text, sizeof(text), "%s%lld:%02lld.%lld", negative ? "-" : "", seconds / 60,
                      seconds % 60, tenths % 10);
    }
    return text;
}
