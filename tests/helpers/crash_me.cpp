// Crashes in the way its first argument names, on the thread that the second one names ("main" or "worker"). What
// follows comes first: "console" and "syslog=PORT" say where the main log goes, "nobody" gives up root.
#include "Platform/CNativeThread.h"
#include "Platform/CrashHandler.h"

#include <atomic>
#include <cfenv>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#define CRASHES extern "C" __attribute__((noinline, noclone, no_sanitize("address", "undefined", "thread")))

namespace {

int* volatile s_pNowhere = nullptr;
volatile int s_iZero = 0;
volatile double s_fZero = 0;
volatile int s_iSink = 0;

CRASHES void CrashByWrite() { *s_pNowhere = 1; }
CRASHES void CrashByRead() { s_iSink = *s_pNowhere; }
CRASHES void CrashByTrap() { s_iSink = raise(SIGTRAP); }
CRASHES void CrashByAbort() { std::abort(); }
CRASHES void CrashByDivision() { s_iSink = 100 / s_iZero; }
CRASHES void CrashBySignal() { s_iSink = raise(SIGSYS); }
CRASHES void CrashByThrow() { throw std::runtime_error("nobody catches this"); }
CRASHES void CrashByTerminate() { std::terminate(); }

CRASHES void CrashByJump()
{
    reinterpret_cast<void (*)()>(s_pNowhere)();
    s_iSink = 1; // so that the call is no jump and the caller stays to be seen
}

CRASHES void CrashByFloatingPoint()
{
    feenableexcept(FE_DIVBYZERO);
    s_fZero = 1.0 / s_fZero;
}

CRASHES int CrashByRecursion(int iDepth)
{
    volatile char frame[1000];
    frame[0] = static_cast<char>(iDepth);
    return iDepth < 0 ? 0 : CrashByRecursion(iDepth + 1) + frame[0];
}

CRASHES void CrashByHeap()
{
    volatile char* volatile pBlock = static_cast<volatile char*>(std::malloc(40));
    for (int i = -16; i < 0; ++i)
        pBlock[i] = 'A'; // the allocator's own words
    std::free(const_cast<char*>(pBlock));
    s_iSink = 1;
}

/// Reads behind the end of a file that is mapped.
CRASHES void CrashByFile()
{
    const int iFile = open("/tmp", O_TMPFILE | O_RDWR, 0600);
    const auto* p = static_cast<volatile char*>(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, iFile, 0));
    s_iSink = *p;
}

#if defined(__x86_64__)
CRASHES void CrashByInstruction() { asm volatile("ud2"); }
CRASHES void CrashByPrivilege() { asm volatile("hlt"); }
CRASHES void CrashByBreakpoint() { asm volatile("int3"); }
CRASHES void CrashByWildAddress() { s_iSink = *reinterpret_cast<volatile int*>(0x4141414141414141); }
#endif

CRASHES void CrashTwice()
{
    static std::atomic<int> iReady = 0;
    const auto crash = [](void*) {
        for (++iReady; iReady < 2;)
            ;
        CrashByWrite();
    };
    const auto pOther = Platform::CNativeThread::Create(crash, nullptr);
    crash(nullptr);
}

/// No process can be started any more, not by this user.
CRASHES void CrashWithoutProcesses()
{
    const rlimit none{0, 0};
    setrlimit(RLIMIT_NPROC, &none);
    CrashByWrite();
}

CRASHES void CrashWithoutDescriptors()
{
    const rlimit few{20, 20};
    setrlimit(RLIMIT_NOFILE, &few);
    while (open("/dev/null", O_RDONLY) >= 0)
        ;
    CrashByWrite();
}

const std::map<std::string, void (*)()> WAYS = {
    {"write", CrashByWrite},
    {"read", CrashByRead},
    {"jump", CrashByJump},
    {"trap", CrashByTrap},
    {"abort", CrashByAbort},
    {"division", CrashByDivision},
    {"signal", CrashBySignal},
    {"throw", CrashByThrow},
    {"terminate", CrashByTerminate},
    {"float", CrashByFloatingPoint},
    {"recursion", [] { s_iSink = CrashByRecursion(0); }},
    {"heap", CrashByHeap},
    {"file", CrashByFile},
#if defined(__x86_64__)
    {"instruction", CrashByInstruction},
    {"privilege", CrashByPrivilege},
    {"breakpoint", CrashByBreakpoint},
    {"wild", CrashByWildAddress},
#endif
    {"twice", CrashTwice},
    {"noprocess", CrashWithoutProcesses},
    {"nodescriptor", CrashWithoutDescriptors},
};

void Prepare(const std::string& strOption)
{
    constexpr int DAEMON = 3 * 8;
    if (strOption == "console")
        Platform::SetCrashLog(Platform::ECrashLog::Console);
    else if (strOption.starts_with("syslog="))
        Platform::SetCrashLog(Platform::ECrashLog::Syslog, "127.0.0.1",
                              static_cast<unsigned short>(std::stoi(strOption.substr(7))), DAEMON, "Tobix");
    else if (strOption == "nobody" && geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
        std::exit(1);
}

} // namespace

int main(int argc, char** argv)
{
    const bool bHelperHangs = std::getenv("CRASH_ME_HANG") != nullptr;
    if (bHelperHangs && argc == 2)
        pause(); // as a helper that never gets to its work
    int iExitCode = 0;
    if (Platform::RunCrashHelperIfAsked(argc, argv, iExitCode))
        return iExitCode;
    if (argc < 3 || !Platform::InstallCrashHandler(bHelperHangs ? 500 : 30'000))
        return 1;
    for (int i = 3; i < argc; ++i)
        Prepare(argv[i]);
    void (*crash)() = WAYS.at(argv[1]);
    if (std::string(argv[2]) == "main") {
        crash();
        return 0;
    }
    const auto pThread =
        Platform::CNativeThread::Create([](void* pCrash) { (*static_cast<void (**)()>(pCrash))(); }, &crash);
    pThread->Join();
    return 0;
}
