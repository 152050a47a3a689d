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

#define UNWATCHED __attribute__((noinline, noclone, no_sanitize("address", "undefined", "thread")))

namespace {

using Platform::CNativeThread;

int* volatile s_pNowhere = nullptr;
volatile int s_iZero = 0;
volatile double s_fZero = 0;
volatile int s_iSink = 0;
void (*s_way)() = nullptr;

/// What is to be seen in the dump, whatever it calls.
UNWATCHED void CrashHere()
{
    volatile char frame[1000];
    frame[0] = 1;
    s_way();
    s_iSink = frame[0]; // so that the call is no jump
}

UNWATCHED void Write() { *s_pNowhere = 1; }
UNWATCHED void Read() { s_iSink = *s_pNowhere; }
UNWATCHED void Jump() { reinterpret_cast<void (*)()>(s_pNowhere)(); }
UNWATCHED void Divide() { s_iSink = 100 / s_iZero; }

UNWATCHED void DivideFloating()
{
    feenableexcept(FE_DIVBYZERO);
    s_fZero = 1.0 / s_fZero;
}

UNWATCHED void ReadBehindTheEndOfAMappedFile()
{
    const int iFile = open("/tmp", O_TMPFILE | O_RDWR, 0600);
    s_iSink = *static_cast<volatile char*>(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, iFile, 0));
}

void CrashTwice()
{
    static std::atomic<int> iReady = 0;
    const auto crash = [](void*) {
        for (++iReady; iReady < 2;)
            ;
        Write();
    };
    const auto pOther = CNativeThread::Create(crash, nullptr);
    crash(nullptr);
}

/// No process can be started any more, not by this user.
void CrashWithoutProcesses()
{
    const rlimit none{0, 0};
    setrlimit(RLIMIT_NPROC, &none);
    Write();
}

void CrashWithoutDescriptors()
{
    const rlimit few{20, 20};
    setrlimit(RLIMIT_NOFILE, &few);
    while (open("/dev/null", O_RDONLY) >= 0)
        ;
    Write();
}

const std::map<std::string, void (*)()> WAYS = {
    {"write", Write},
    {"read", Read},
    {"jump", Jump},
    {"recursion", CrashHere},
    {"abort", std::abort},
    {"throw", [] { throw std::runtime_error("nobody catches this"); }},
    {"terminate", std::terminate},
    {"division", Divide},
    {"float", DivideFloating},
    {"file", ReadBehindTheEndOfAMappedFile},
    {"trap", [] { raise(SIGTRAP); }},
    {"signal", [] { raise(SIGSYS); }},
#if defined(__x86_64__)
    {"instruction", [] { asm volatile("ud2"); }},
    {"privilege", [] { asm volatile("hlt"); }},
    {"wild", []() UNWATCHED { s_iSink = *reinterpret_cast<volatile int*>(0x4141414141414141); }},
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
    s_way = WAYS.at(argv[1]);
    if (std::string(argv[2]) == "main")
        CrashHere();
    else
        CNativeThread::Create([](void*) { CrashHere(); }, nullptr)->Join();
}
