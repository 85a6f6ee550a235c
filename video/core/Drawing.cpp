#include "video/core/Drawing.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace {

constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 7;
constexpr int kAdvance = kGlyphWidth + 1;

struct SGlyph {
    char m_Character;
    std::array<std::uint8_t, kGlyphHeight> m_Rows; // 5 bits a row, the leftmost pixel highest
};

// clang-format off
constexpr SGlyph kFont[] = {
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}},
    {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}},
    {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}},
    {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}},
    {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}},
    {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {':', {0x00, 0x0C, 0x0C, 0x00, 0x0C, 0x0C, 0x00}},
    {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x0C}},
    {'-', {0x00, 0x00, 0x00, 0x1F, 0x00, 0x00, 0x00}},
    {'=', {0x00, 0x00, 0x1F, 0x00, 0x1F, 0x00, 0x00}},
    {'#', {0x0A, 0x0A, 0x1F, 0x0A, 0x1F, 0x0A, 0x0A}},
    {'/', {0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x00}},
    {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}},
    {'s', {0x00, 0x00, 0x0E, 0x10, 0x0E, 0x01, 0x1E}},
    {'i', {0x04, 0x00, 0x0C, 0x04, 0x04, 0x04, 0x0E}},
    {'n', {0x00, 0x00, 0x16, 0x19, 0x11, 0x11, 0x11}},
    {'o', {0x00, 0x00, 0x0E, 0x11, 0x11, 0x11, 0x0E}},
    {'u', {0x00, 0x00, 0x11, 0x11, 0x11, 0x13, 0x0D}},
    {'t', {0x08, 0x08, 0x1C, 0x08, 0x08, 0x09, 0x06}},
};
// clang-format on

const SGlyph* GlyphOf(char character) {
    for (const SGlyph& glyph : kFont) {
        if (glyph.m_Character == character) {
            return &glyph;
        }
    }
    return nullptr;
}

} // namespace

void ZorFillRect(const SZorRgbImage& image, int left, int top, int right, int bottom,
                 SZorColour colour) {
    left = std::max(left, 0);
    top = std::max(top, 0);
    right = std::min(right, image.m_Width);
    bottom = std::min(bottom, image.m_Height);
    for (int y = top; y < bottom; ++y) {
        for (int x = left; x < right; ++x) {
            std::uint8_t* pixel = image.Pixel(x, y);
            pixel[0] = colour.m_Red;
            pixel[1] = colour.m_Green;
            pixel[2] = colour.m_Blue;
        }
    }
}

void ZorDrawBox(const SZorRgbImage& image, int left, int top, int right, int bottom,
                SZorColour colour, int thickness) {
    if (right <= left || bottom <= top || thickness <= 0) {
        return;
    }
    const int t = std::min({thickness, right - left, bottom - top});
    ZorFillRect(image, left, top, right, top + t, colour);
    ZorFillRect(image, left, bottom - t, right, bottom, colour);
    ZorFillRect(image, left, top + t, left + t, bottom - t, colour);
    ZorFillRect(image, right - t, top + t, right, bottom - t, colour);
}

void ZorDrawLine(const SZorRgbImage& image, int x0, int y0, int x1, int y1, SZorColour colour,
                 int thickness) {
    thickness = std::max(thickness, 1);
    const int before = (thickness - 1) / 2;
    // Bresenham's walk; each step paints a thickness-wide square, clipped like every fill.
    const int dx = std::abs(x1 - x0);
    const int dy = -std::abs(y1 - y0);
    const int sx = x0 < x1 ? 1 : -1;
    const int sy = y0 < y1 ? 1 : -1;
    int error = dx + dy;
    for (int steps = 0; steps <= dx - dy; ++steps) {
        ZorFillRect(image, x0 - before, y0 - before, x0 - before + thickness,
                    y0 - before + thickness, colour);
        if (x0 == x1 && y0 == y1) {
            break;
        }
        const int twice = 2 * error;
        if (twice >= dy) {
            error += dy;
            x0 += sx;
        }
        if (twice <= dx) {
            error += dx;
            y0 += sy;
        }
    }
}

void ZorDrawText(const SZorRgbImage& image, int x, int y, std::string_view text, SZorColour colour,
                 int scale) {
    scale = std::max(scale, 1);
    for (const char character : text) {
        if (const SGlyph* glyph = GlyphOf(character)) {
            for (int row = 0; row < kGlyphHeight; ++row) {
                for (int column = 0; column < kGlyphWidth; ++column) {
                    if (glyph->m_Rows[static_cast<size_t>(row)] & (0x10 >> column)) {
                        const int px = x + column * scale;
                        const int py = y + row * scale;
                        ZorFillRect(image, px, py, px + scale, py + scale, colour);
                    }
                }
            }
        }
        x += kAdvance * scale;
    }
}

int ZorTextWidth(std::string_view text, int scale) {
    return text.empty() ? 0 : static_cast<int>(text.size()) * kAdvance * scale - scale;
}

int ZorTextHeight(int scale) {
    return kGlyphHeight * scale;
}

SZorColour ZorBoxColour(std::uint32_t id) {
    static constexpr SZorColour kPalette[] = {
        {255, 64, 64},  {64, 255, 64}, {64, 160, 255}, {255, 224, 0},
        {255, 64, 255}, {0, 255, 255}, {255, 160, 32}, {160, 96, 255},
    };
    return kPalette[id % (sizeof(kPalette) / sizeof(kPalette[0]))];
}
