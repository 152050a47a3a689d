// Preloaded into the daemon: moves its wall clock, and tells how much memory it has allocated when it is asked. Both
// stand in the file that SOAK_PAGE names. The monotonic clock, and with it every wait, stays as it is; so does the time
// that the kernel gives to files.
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

extern "C" __attribute__((weak)) size_t __sanitizer_get_current_allocated_bytes();

namespace {

struct SPage
{
    volatile int64_t iSecondsAhead;
    volatile int64_t iAsked; // the process that is to tell; 0 when it has
    volatile int64_t iAllocated;
};

SPage* g_pPage = nullptr; // null before the library is set up, and without a file

__attribute__((constructor)) void MapPage()
{
    const char* const pszFile = std::getenv("SOAK_PAGE");
    const int iFile = pszFile != nullptr ? open(pszFile, O_RDWR | O_CLOEXEC) : -1;
    void* const pPage =
        iFile >= 0 ? mmap(nullptr, sizeof(SPage), PROT_READ | PROT_WRITE, MAP_SHARED, iFile, 0) : MAP_FAILED;
    if (pPage != MAP_FAILED)
        g_pPage = static_cast<SPage*>(pPage);
    if (iFile >= 0)
        close(iFile);
}

// What the program holds, without what an allocator keeps of the memory that was freed.
size_t Allocated()
{
    if (__sanitizer_get_current_allocated_bytes != nullptr)
        return __sanitizer_get_current_allocated_bytes();
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* pNow) noexcept
{
    if (g_pPage != nullptr && g_pPage->iAsked == getpid()) {
        g_pPage->iAllocated = static_cast<int64_t>(Allocated());
        g_pPage->iAsked = 0;
    }
    const auto iResult = static_cast<int>(syscall(SYS_clock_gettime, clock, pNow));
    if (iResult == 0 && clock == CLOCK_REALTIME && g_pPage != nullptr)
        pNow->tv_sec += g_pPage->iSecondsAhead;
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
