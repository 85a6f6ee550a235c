// Every wide row-kernel table must give the scalar reference's bytes: random rows of many odd
// lengths, in place as the chain uses them and apart.
#include "analytics/image/BeluiRows.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

class BeluiRows : public testing::TestWithParam<EBeluiLevel> {
protected:
    void SetUp() override {
        m_pWide = BeluiRowKernelsFor(GetParam());
        if (!m_pWide) {
            GTEST_SKIP() << "level not available on this CPU";
        }
    }
    // Random bytes biased towards the values the kernels branch on (0, 1, near thresholds, 255).
    Bytes Random(int n) {
        Bytes v(static_cast<std::size_t>(n));
        for (auto& b : v) {
            const unsigned r = m_Random() % 8;
            b = static_cast<std::uint8_t>(r == 0   ? 0
                                          : r == 1 ? 255
                                          : r == 2 ? 1 + m_Random() % 3
                                                   : m_Random() % 256);
        }
        return v;
    }
    const SBeluiRowKernels& Ref() const { return g_BeluiRowsScalar; }
    const SBeluiRowKernels& Wide() const { return *m_pWide; }

    std::mt19937 m_Random{12345};
    const SBeluiRowKernels* m_pWide = nullptr;
};

const int kLengths[] = {0, 1, 3, 15, 16, 17, 31, 32, 33, 63, 64, 65, 100, 353};

TEST_P(BeluiRows, PixelKernelsMatchTheReference) {
    for (int n : kLengths) {
        for (int round = 0; round < 20; ++round) {
            const Bytes a = Random(n), b = Random(n), c = Random(n), m = Random(n);
            const int t = static_cast<int>(m_Random() % 256);
            const int v = static_cast<int>(m_Random() % 256);
            const int weight = static_cast<int>(m_Random() % 129);
            auto check = [&](const char* what, auto run) {
                Bytes x = a, y = a;
                Bytes bx = b, by = b;
                run(Ref(), x, bx);
                run(Wide(), y, by);
                ASSERT_EQ(x, y) << what << " n=" << n;
                ASSERT_EQ(bx, by) << what << " n=" << n;
            };
            check("AbsDiff", [&](const SBeluiRowKernels& k, Bytes& d, Bytes&) {
                k.AbsDiff(d.data(), b.data(), c.data(), n);
            });
            check("KeepWhere", [&](const SBeluiRowKernels& k, Bytes& d, Bytes&) {
                Bytes allow = m;
                for (auto& x : allow) {
                    x = x > 127 ? 255 : 0;
                }
                k.KeepWhere(d.data(), allow.data(), n);
            });
            check("MaskDouble in place", [&](const SBeluiRowKernels& k, Bytes& d, Bytes&) {
                k.MaskDouble(d.data(), d.data(), b.data(), c.data(), m.data(), n, t);
            });
            check("MaskAndIncIfNotZero", [&](const SBeluiRowKernels& k, Bytes& d, Bytes&) {
                k.MaskAndIncIfNotZero(d.data(), m.data(), n, v);
            });
            check("SubtractAndMaskBlendAndMakeMask",
                  [&](const SBeluiRowKernels& k, Bytes& d, Bytes& e) {
                      k.SubtractAndMaskBlendAndMakeMask(d.data(), e.data(), m.data(), n, weight,
                                                        t % 40, v);
                  });
            check("Mask, mask is source", [&](const SBeluiRowKernels& k, Bytes& d, Bytes& e) {
                k.Mask(d.data(), e.data(), e.data(), n, t);
            });
            check("Select and Blend", [&](const SBeluiRowKernels& k, Bytes& d, Bytes& e) {
                Bytes allow = m;
                for (auto& x : allow) {
                    x = x & 1 ? 255 : 0;
                }
                k.Select(e.data(), c.data(), allow.data(), n);
                k.Blend(d.data(), c.data(), allow.data(), n, weight);
            });
            check("SubtractFrom", [&](const SBeluiRowKernels& k, Bytes& d, Bytes&) {
                k.SubtractFrom(d.data(), b.data(), c.data(), n, weight);
            });
            check("MaskThreshold in place", [&](const SBeluiRowKernels& k, Bytes& d, Bytes&) {
                k.MaskThreshold(d.data(), c.data(), d.data(), n, t % 8, v % 8);
            });
            check("MovePairs", [&](const SBeluiRowKernels& k, Bytes& d, Bytes& e) {
                k.MovePairs(d.data(), e.data(), c.data(), m.data(), n / 2, t, v);
            });
        }
    }
}

TEST_P(BeluiRows, GroupSumsMatchTheReference) {
    for (int groups : {0, 1, 3, 4, 7, 8, 9, 88, 480}) {
        const Bytes src = Random(4 * groups);
        for (int floor : {0, 8, 254, 255}) {
            std::vector<std::uint32_t> x(static_cast<std::size_t>(groups), 7);
            std::vector<std::uint32_t> y = x;
            Ref().AddGroupsOf4Above(x.data(), src.data(), groups, floor);
            Wide().AddGroupsOf4Above(y.data(), src.data(), groups, floor);
            ASSERT_EQ(x, y) << "groups=" << groups << " floor=" << floor;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Levels, BeluiRows, testing::Values(EBeluiLevel::Sse2, EBeluiLevel::Avx2),
                         [](const testing::TestParamInfo<EBeluiLevel>& info) {
                             return info.param == EBeluiLevel::Sse2 ? "Sse2" : "Avx2";
                         });

} // namespace
