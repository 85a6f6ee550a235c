// Contact sheets: a grid of thumbnails spread evenly over a stream whose length is not known in
// advance, each captioned with its time.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

// Keeps thumbnails of pictures 0, k, 2k ... and, whenever it holds twice the number wanted,
// drops every other one and doubles k. At the end the kept ones are evenly spaced over the
// whole stream, and memory never exceeds twice the wanted count.
template <class T> class CZorThumbnailPicker {
public:
    explicit CZorThumbnailPicker(int wanted) : m_Wanted(wanted < 1 ? 1 : wanted) {}

    // Whether the next picture offered should be kept; call once per picture, in order.
    bool Offer() { return m_Next++ % m_Step == 0; }
    // Keeps the thumbnail of the picture just offered.
    void Keep(T thumbnail) {
        m_Kept.push_back(std::move(thumbnail));
        if (static_cast<int>(m_Kept.size()) >= 2 * m_Wanted) {
            std::vector<T> half;
            for (size_t i = 0; i < m_Kept.size(); i += 2) {
                half.push_back(std::move(m_Kept[i]));
            }
            m_Kept = std::move(half);
            m_Step *= 2;
        }
    }
    // At most the wanted number, evenly spread over those kept, first and last included.
    std::vector<T> Take() {
        std::vector<T> chosen;
        const int kept = static_cast<int>(m_Kept.size());
        const int count = std::min(kept, m_Wanted);
        for (int i = 0; i < count; ++i) {
            const int at =
                count == 1
                    ? 0
                    : static_cast<int>((static_cast<long long>(i) * (kept - 1) + (count - 1) / 2) /
                                       (count - 1));
            chosen.push_back(std::move(m_Kept[static_cast<size_t>(at)]));
        }
        m_Kept.clear();
        return chosen;
    }
    int KeptCount() const { return static_cast<int>(m_Kept.size()); }
    long long Step() const { return m_Step; }

private:
    int m_Wanted;
    long long m_Next = 0;
    long long m_Step = 1;
    std::vector<T> m_Kept;
};

// Where each cell of a sheet lies.
struct SZorSheetLayout {
    int m_Width = 0;
    int m_Height = 0;
    int m_CellWidth = 0;  // the thumbnail's width
    int m_CellHeight = 0; // the thumbnail's height plus its caption
    int m_Margin = 0;
    int m_Columns = 0;
    int m_CaptionScale = 1;

    // Top left corner of cell i's thumbnail.
    std::pair<int, int> Cell(int i) const {
        return {m_Margin + (i % m_Columns) * (m_CellWidth + m_Margin),
                m_Margin + (i / m_Columns) * (m_CellHeight + m_Margin)};
    }
};

// The layout of count thumbnails of thumbWidth x thumbHeight in columns (fewer when there are
// fewer thumbnails), with a caption line under each.
SZorSheetLayout ZorSheetLayout(int count, int columns, int thumbWidth, int thumbHeight);

// "h:mm:ss.s", or "m:ss.s" under an hour, of a time in milliseconds.
std::string ZorTimeCaption(long long milliseconds);
