// Preloaded into the daemon: moves its wall clock by the seconds that stand in the file that SOAK_CLOCK names. The
// monotonic clock, and with it every wait, stays as it is; so does the time that the kernel gives to files.
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

const volatile int64_t* g_pOffset = nullptr; // null before the library is set up, and without a file

__attribute__((constructor)) void MapOffset()
{
    const char* const pszFile = std::getenv("SOAK_CLOCK");
    const int iFile = pszFile != nullptr ? open(pszFile, O_RDONLY | O_CLOEXEC) : -1;
    void* const pPage = iFile >= 0 ? mmap(nullptr, sizeof(int64_t), PROT_READ, MAP_SHARED, iFile, 0) : MAP_FAILED;
    if (pPage != MAP_FAILED)
        g_pOffset = static_cast<const volatile int64_t*>(pPage);
    if (iFile >= 0)
        close(iFile);
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* pNow) noexcept
{
    const auto iResult = static_cast<int>(syscall(SYS_clock_gettime, clock, pNow));
    if (iResult == 0 && clock == CLOCK_REALTIME && g_pOffset != nullptr)
        pNow->tv_sec += *g_pOffset;
    return iResult;
}

extern "C" int gettimeofday(timeval* pNow, void*) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *pNow = {.tv_sec = now.tv_sec, .tv_usec = now.tv_nsec / 1000};
    return 0;
}

extern "C" time_t time(time_t* pNow) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (pNow != nullptr)
        *pNow = now.tv_sec;
    return now.tv_sec;
}
