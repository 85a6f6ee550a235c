#include "analytics/image/BeluiRows.h"

#include <atomic>

namespace {

const SBeluiRowKernels* Widest() {
#if defined(__x86_64__) || defined(__i386__)
    if (__builtin_cpu_supports("avx2")) {
        return &g_BeluiRowsAvx2;
    }
    if (__builtin_cpu_supports("sse2")) {
        return &g_BeluiRowsSse2;
    }
#endif
    return &g_BeluiRowsScalar;
}

// Chosen on first use; tests may replace it (BeluiUseLevel). Relaxed atomics: every value ever
// stored is a complete, constant table.
std::atomic<const SBeluiRowKernels*> s_pCurrent{nullptr};

} // namespace

const SBeluiRowKernels* BeluiRowKernelsFor(EBeluiLevel level) {
    switch (level) {
    case EBeluiLevel::Scalar:
        return &g_BeluiRowsScalar;
#if defined(__x86_64__) || defined(__i386__)
    case EBeluiLevel::Sse2:
        return __builtin_cpu_supports("sse2") ? &g_BeluiRowsSse2 : nullptr;
    case EBeluiLevel::Avx2:
        return __builtin_cpu_supports("avx2") ? &g_BeluiRowsAvx2 : nullptr;
#endif
    default:
        return nullptr;
    }
}

const SBeluiRowKernels& BeluiRowKernels() {
    const SBeluiRowKernels* current = s_pCurrent.load(std::memory_order_relaxed);
    if (!current) {
        current = Widest();
        s_pCurrent.store(current, std::memory_order_relaxed);
    }
    return *current;
}

bool BeluiUseLevel(EBeluiLevel level) {
    const SBeluiRowKernels* table = BeluiRowKernelsFor(level);
    if (!table) {
        return false;
    }
    s_pCurrent.store(table, std::memory_order_relaxed);
    return true;
}
