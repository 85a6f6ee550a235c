// The reference row kernels: plain C++, one sample at a time. Wider tables must match these
// byte for byte.
#include "analytics/image/BeluiRows.h"

#include <algorithm>
#include <cstdlib>

namespace {

using u8 = std::uint8_t;

void AbsDiff(u8* dst, const u8* a, const u8* b, int n) {
    for (int i = 0; i < n; ++i) {
        dst[i] = static_cast<u8>(std::abs(a[i] - b[i]));
    }
}

void AddGroupsOf4Above(std::uint32_t* sums, const u8* src, int groups, int floor) {
    for (int g = 0; g < groups; ++g) {
        std::uint32_t sum = 0;
        for (int i = 4 * g; i < 4 * g + 4; ++i) {
            sum += src[i] > floor ? src[i] : 0;
        }
        sums[g] += sum;
    }
}

void KeepWhere(u8* dst, const u8* allow, int n) {
    for (int i = 0; i < n; ++i) {
        dst[i] = allow[i] != 0 ? std::max<u8>(dst[i], 1) : 0;
    }
}

void MaskDouble(u8* dst, const u8* a, const u8* b, const u8* c, const u8* mask, int n, int t) {
    for (int i = 0; i < n; ++i) {
        if (mask[i] == 0) {
            dst[i] = a[i];
        } else if (b[i] != 0 && std::abs(b[i] - c[i]) <= t) {
            dst[i] = static_cast<u8>((b[i] + c[i] + 1) >> 1);
        } else {
            dst[i] = std::max<u8>(c[i], 1);
        }
    }
}

void MaskAndIncIfNotZero(u8* dst, const u8* mask, int n, int value) {
    for (int i = 0; i < n; ++i) {
        dst[i] = static_cast<u8>(mask[i] != 0 ? std::min(dst[i] + 1, 255) : value);
    }
}

void SubtractAndMaskBlendAndMakeMask(const u8* a, u8* b, const u8* mask, int n, int weight, int t,
                                     int value) {
    for (int i = 0; i < n; ++i) {
        if (a[i] == 0 || b[i] == 0) {
            continue;
        }
        const int diff = b[i] - a[i];
        if (std::abs(diff) > t) {
            b[i] = static_cast<u8>(value);
        } else if (mask[i] != 0) {
            b[i] = static_cast<u8>(a[i] + ((diff * weight + 128) >> 8));
        }
    }
}

void Mask(u8* dst, const u8* src, const u8* mask, int n, int level) {
    for (int i = 0; i < n; ++i) {
        if (mask[i] <= level) {
            dst[i] = src[i];
        }
    }
}

void Select(u8* dst, const u8* src, const u8* allow, int n) {
    for (int i = 0; i < n; ++i) {
        if (allow[i] != 0) {
            dst[i] = src[i];
        }
    }
}

void Blend(u8* dst, const u8* src, const u8* allow, int n, int weight) {
    for (int i = 0; i < n; ++i) {
        if (allow[i] != 0) {
            dst[i] = static_cast<u8>(dst[i] + (((src[i] - dst[i]) * weight + 128) >> 8));
        }
    }
}

void SubtractFrom(u8* dst, const u8* a, const u8* b, int n, int gain) {
    for (int i = 0; i < n; ++i) {
        dst[i] = static_cast<u8>(std::min(255, std::abs(b[i] - a[i]) * gain));
    }
}

void MaskThreshold(u8* dst, const u8* src, const u8* mask, int n, int relShift, int dimShift) {
    for (int i = 0; i < n; ++i) {
        if (mask[i] <= (src[i] >> relShift)) {
            dst[i] = static_cast<u8>(src[i] >> dimShift);
        }
    }
}

void MovePairs(u8* dst0, u8* dst1, const u8* r0, const u8* r1, int pairs, int threshold,
               int value) {
    for (int p = 0; p < pairs; ++p) {
        const int i = 2 * p;
        const int top = std::max({r0[i], r0[i + 1], r1[i], r1[i + 1]});
        const u8 out = static_cast<u8>(top >= threshold ? value : 255);
        dst0[i] = dst0[i + 1] = dst1[i] = dst1[i + 1] = out;
    }
}

} // namespace

constinit const SBeluiRowKernels g_BeluiRowsScalar = {
    "scalar",
    AbsDiff,
    AddGroupsOf4Above,
    KeepWhere,
    MaskDouble,
    MaskAndIncIfNotZero,
    SubtractAndMaskBlendAndMakeMask,
    Mask,
    Select,
    Blend,
    SubtractFrom,
    MaskThreshold,
    MovePairs,
};
