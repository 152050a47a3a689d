#include "Platform/linux/thread/PollWithin.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <poll.h>

namespace Platform {

namespace {

constexpr size_t MOST_DESCRIPTORS = 4;

/// Of which the last part is short of INT_MAX.
int PollTimeout(uint64_t ui64Left)
{
    return ui64Left == CWaitLimit::NO_LIMIT ? -1 : static_cast<int>(std::min<uint64_t>(ui64Left, INT_MAX));
}

} // namespace

EPollEnd PollWithin(std::span<pollfd> polled, const CWaitLimit& limit)
{
    std::array<pollfd, MOST_DESCRIPTORS + 1> all{};
    const size_t nPolled = std::min(polled.size(), MOST_DESCRIPTORS);
    std::copy_n(polled.begin(), nPolled, all.begin());
    pollfd& stop = all[nPolled]; // poll() passes over descriptors of -1
    stop = {limit.Stop() != nullptr ? limit.Stop()->WaitDescriptor() : -1, POLLIN, 0};
    for (;;) {
        const int iMillis = PollTimeout(limit.MillisLeft());
        const int iReady = poll(all.data(), nPolled + 1, iMillis);
        if (iReady < 0 && errno != EINTR)
            return EPollEnd::Failed;
        if (iReady > 0 && stop.revents != 0) {
            limit.Stop()->Observe();
            if (limit.EndsNow())
                return EPollEnd::Stopped;
            stop = {-1, 0, 0};
            continue;
        }
        if (iReady > 0) {
            std::copy_n(all.begin(), nPolled, polled.begin());
            return EPollEnd::Ready;
        }
        if (iReady == 0 && iMillis != INT_MAX)
            return EPollEnd::TimedOut;
    }
}

} // namespace Platform
