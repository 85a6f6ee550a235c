// CZorFrameSector: change between successive frames, graded for one sector (region) of the
// frame. The caller walks the sector's pixels in two frames and feeds each pair, normalises the
// two accumulators, then asks for a classification; the sector keeps running averages of both
// accumulators, the length of the current run of frames (the group) and the size of the last
// short-term jump. The grid component (SectorGrid.h) is one such caller.
//
// Per frame: ResetSDiff and ResetLDiff; feed pixels into the short (isShort != 0) and long
// accumulators; normalise; CalculateSFTagWithIndex. Averages, group length, magnitude and the
// long-change history carry over from frame to frame; the caller keeps the history
// (ShiftLongChangeValueFrom, ResetLongChange) and says which entry to read.
//
// Arithmetic is single precision, every intermediate rounded to float where it is stored, so
// results are the same on every machine (this file is built without contraction into fused
// multiply-adds).
//
// Pixel kinds: 1 = one byte mapped through the value table, 2 = one 32-bit signed integer,
// 3 = three bytes compared channel by channel; any other kind is ignored.
//
// Change levels (what CalculateSFTagWithIndex stores), with S the short-change test, H the low
// cut (SDiff >= lower cut), K the high cut (LDiff >= higher cut; -1 when LDiff is -1.0, no long
// measurement) and P the history entry read:
//   S = 0:  2 when K = 0, else 3, if H = 1 or K = 0 or P = 0; otherwise 10.
//   S = 1:  12 if H = 1, K != 0 and P != 0; else 8 if K = 0; else magnitude + 3 (3..7) if H = 1
//           or P = 0; otherwise 10.
#pragma once

#include "entry/ZorExport.h"

class ZOR_EXPORT CZorFrameSector {
public:
    static constexpr int kHistorySize = 50;

    CZorFrameSector(float shortChangeThreshold, int minGroupLength, float lowerCutThreshold,
                    float higherCutThreshold, float pixelThreshold, int* valueTable);
    ~CZorFrameSector() = default;

    void SetShortChangeThreshold(float value) { m_ShortChangeThreshold = value; }
    void SetMinGroupLength(int value) { m_MinGroupLength = value; }
    void SetLowerCutThreshold(float value) { m_LowerCutThreshold = value; }
    void SetHigherCutThreshold(float value) { m_HigherCutThreshold = value; }
    void SetChangeLevel(int value) { m_ChangeLevel = value; }

    void ResetSDiff() { m_SDiff = 0.0f; }
    void ResetLDiff() { m_LDiff = 0.0f; }
    // History entry 0 = 0.
    void ResetLongChange() { m_LongChange[0] = 0; }

    float GetSDiff() const { return m_SDiff; }
    float GetLDiff() const { return m_LDiff; }
    float GetSAverageDiff() const { return m_SAverageDiff; }
    float GetLAverageDiff() const { return m_LAverageDiff; }
    int GetChangeLevel() const { return m_ChangeLevel; }
    int GetGroupLength() const { return m_GroupLength; }
    int GetShortChangeMagnitude() const { return m_ShortChangeMagnitude; }
    // History entry index; -1 for an index outside 0..49.
    int GetLongChangeAtIndex(int index) const;
    // history[to] = history[from]; ignored when either is outside 0..49.
    void ShiftLongChangeValueFrom(int from, int to);

    // Per-pixel feed: a and b point at the same pixel of the two frames (a kind-2 pixel may be
    // unaligned). Counting adds 1.0 for a changed pixel: kind 1 when the difference exceeds the
    // pixel threshold, kind 2 when it exceeds the threshold truncated to an integer, kind 3
    // only when all three channel differences exceed it. Summing adds the difference (kind 3:
    // the three channel differences one after another). Kind 1 needs the value table; without
    // one its pixels are ignored.
    void CalcDiffIncrPixelCount(const unsigned char* a, const unsigned char* b, int kind,
                                int isShort);
    void CalcDiffAccumulatePixelDiff(const unsigned char* a, const unsigned char* b, int kind,
                                     int isShort);
    // The same over `count` pixels `stride` bytes apart in both rows, in order: the result is
    // the one the per-pixel calls give.
    void CalcDiffIncrPixelCountRow(const unsigned char* a, const unsigned char* b, int count,
                                   int stride, int kind, int isShort);
    void CalcDiffAccumulatePixelDiffRow(const unsigned char* a, const unsigned char* b, int count,
                                        int stride, int kind, int isShort);

    // Normalisation. Counting: the chosen accumulator becomes (accumulator * 100) / (a / b),
    // a / b in floating point: with a pixels in the sector and a sampling step b, the share of
    // sampled pixels that changed, in percent. Summing: (SDiff * 100) / ((a / b) * channels *
    // 255), a / b in integers, into SDiff when isShort is non-zero, else into LDiff; it reads
    // SDiff in both cases (kept on purpose: callers rely on it). A b of 0 leaves both
    // accumulators as they are.
    void CalcDiffIncrPixelCount(int a, int b, int isShort);
    void CalcDiffAccPixelDiff(int a, int b, int isShort, int channels);

    // Classifies the frame whose long-change history entry is index - 1 and stores the level
    // (see the table above); answers it. An index outside 1..50 reads no entry and counts as a
    // history of -1.
    int CalculateSFTagWithIndex(int index);

private:
    void UpdateLongAverage();
    int UpdateShortAverage();
    float& Accumulator(int isShort) { return isShort != 0 ? m_SDiff : m_LDiff; }
    // Adds a row's whole total at once when that gives the same float as adding its parts one
    // by one; answers false (adding nothing) otherwise.
    static bool AddExactly(float& acc, long long total);

    [[maybe_unused]] int m_Reserved = 1; // kept for the layout other modules were built against
    float m_LDiff = 0.0f;
    float m_SDiff = 0.0f;
    int m_LongChange[kHistorySize] = {};
    float m_SAverageDiff = 0.0f;
    float m_LAverageDiff = 0.0f;
    int m_ChangeLevel = 0;
    int m_GroupLength = 0;
    int m_ShortChangeMagnitude = -1;
    float m_ShortChangeThreshold;
    int m_MinGroupLength;
    float m_LowerCutThreshold;
    float m_HigherCutThreshold;
    float m_PixelThreshold;
    int* m_pValueTable;
};
