#include "Common/Statistics.h"

#include <algorithm>
#include <atomic>

namespace Statistics {

namespace {

/// So that threads which count different things do not wait for one another.
struct alignas(64) SCounter
{
    std::atomic<uint64_t> nValue = 0;
};

struct alignas(64) SDuration
{
    std::array<std::atomic<uint64_t>, BOUNDS.size() + 1> counts{};
    std::atomic<uint64_t> nSum = 0;
};

constinit std::array<SCounter, static_cast<size_t>(ECount::Number)> s_counters{};
constinit std::array<SDuration, static_cast<size_t>(EDuration::Number)> s_durations{};

} // namespace

void Count(ECount what) { s_counters[static_cast<size_t>(what)].nValue.fetch_add(1, std::memory_order_relaxed); }

uint64_t CountOf(ECount what) { return s_counters[static_cast<size_t>(what)].nValue.load(std::memory_order_relaxed); }

void Took(EDuration what, uint64_t ui64Micros)
{
    SDuration& duration = s_durations[static_cast<size_t>(what)];
    const auto field = std::ranges::lower_bound(BOUNDS, ui64Micros) - BOUNDS.begin();
    duration.counts[static_cast<size_t>(field)].fetch_add(1, std::memory_order_relaxed);
    duration.nSum.fetch_add(ui64Micros, std::memory_order_relaxed);
}

SHistogram HistogramOf(EDuration what)
{
    const SDuration& duration = s_durations[static_cast<size_t>(what)];
    SHistogram histogram;
    for (size_t n = 0; n < histogram.counts.size(); ++n)
        histogram.counts[n] = duration.counts[n].load(std::memory_order_relaxed);
    histogram.ui64SumMicros = duration.nSum.load(std::memory_order_relaxed);
    return histogram;
}

} // namespace Statistics
