// Drawing on 24-bit RGB pictures: box outlines (the bounding boxes analytics attach to frames),
// filled rectangles and short captions (timestamps, levels, box ids) in a built-in 5x7 font.
// Everything is clipped to the picture, so coordinates from a damaged or foreign packet can
// never write outside it.
#pragma once

#include <cstdint>
#include <string_view>

// A picture of m_Width x m_Height pixels, 3 bytes each (R, G, B), rows m_Stride bytes apart.
struct SZorRgbImage {
    std::uint8_t* m_pData = nullptr;
    int m_Stride = 0;
    int m_Width = 0;
    int m_Height = 0;

    std::uint8_t* Pixel(int x, int y) const { return m_pData + y * m_Stride + 3 * x; }
};

struct SZorColour {
    std::uint8_t m_Red = 0;
    std::uint8_t m_Green = 0;
    std::uint8_t m_Blue = 0;
    bool operator==(const SZorColour&) const = default;
};

// Fills [left, right) x [top, bottom).
void ZorFillRect(const SZorRgbImage& image, int left, int top, int right, int bottom,
                 SZorColour colour);

// The outline of the box [left, right) x [top, bottom), thickness pixels wide, drawn inside it.
void ZorDrawBox(const SZorRgbImage& image, int left, int top, int right, int bottom,
                SZorColour colour, int thickness);

// A straight line from (x0, y0) to (x1, y1), both ends included, thickness pixels wide (counting
// lines, tracks' trails).
void ZorDrawLine(const SZorRgbImage& image, int x0, int y0, int x1, int y1, SZorColour colour,
                 int thickness);

// Text whose top left corner is (x, y), each font pixel drawn scale x scale. The font has digits,
// space, ": . - = # /" and the letters "L", "s", "i", "n", "o", "u" and "t"; other characters are
// left blank.
void ZorDrawText(const SZorRgbImage& image, int x, int y, std::string_view text, SZorColour colour,
                 int scale);
// The size of such text.
int ZorTextWidth(std::string_view text, int scale);
int ZorTextHeight(int scale);

// A colour per box id, from a palette of distinct bright colours.
SZorColour ZorBoxColour(std::uint32_t id);
