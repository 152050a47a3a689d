// What the helper does: the exception line, the dump, the line that tells of the dump.
#include "Platform/ConsoleScreen.h"
#include "Platform/CrashHandler.h"
#include "Platform/Errors.h"
#include "Platform/FileSystem.h"
#include "Platform/linux/crash/CCoreDump.h"
#include "Platform/linux/crash/CMemoryMap.h"
#include "Platform/linux/crash/CrashCode.h"
#include "Platform/linux/crash/CrashLog.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <poll.h>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace Platform {

namespace {

constexpr unsigned LOG_LIMIT = 3;         // seconds for one line
constexpr unsigned DUMP_LIMIT = 20;       // seconds
constexpr int RECORD_LIMIT = 1000;        // milliseconds; it is there before this process is
constexpr uint64_t GUARD_BYTES = 1 << 20; // that the kernel keeps free below a stack, at most

/// False when the work goes on for longer than that; it is left alone then, and must own all that it uses.
bool RunWithin(unsigned dwSeconds, const std::function<void()>& work)
{
    auto pTask = std::make_shared<std::packaged_task<void()>>(work);
    const std::future<void> done = pTask->get_future();
    try {
        std::thread([pTask] { (*pTask)(); }).detach();
    } catch (const std::system_error&) { // no more threads for this user: better without a limit than not at all
        (*pTask)();
    }
    return done.wait_for(std::chrono::seconds(dwSeconds)) == std::future_status::ready;
}

bool ReadRecord(SCrashRecord& record)
{
    auto* pTo = reinterpret_cast<char*>(&record);
    size_t nMissing = sizeof(record);
    while (nMissing > 0) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (poll(&input, 1, RECORD_LIMIT) != 1)
            return false;
        const ssize_t nRead = read(STDIN_FILENO, pTo, nMissing);
        if (nRead <= 0)
            return false;
        pTo += nRead;
        nMissing -= static_cast<size_t>(nRead);
    }
    return record.ui64Magic == CRASH_MAGIC && record.iProcess == getppid();
}

/// The access failed right below the lowest address of the stack that the thread was on.
bool IsStackExhausted(const SCrashRecord& record)
{
    if (record.info.si_signo != SIGSEGV || record.info.si_code <= 0 || record.registers.bNoAddress)
        return false;
    const auto ui64Accessed = reinterpret_cast<uint64_t>(record.info.si_addr);
    const uint64_t ui64Stack = StackPointer(record.registers.general);
    const auto nPage = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    const std::vector<SMapping> mappings = ReadMemoryMap(record.iProcess, false);
    const auto stack = std::find_if(mappings.begin(), mappings.end(), [ui64Stack](const SMapping& mapping) {
        return mapping.bWrite && mapping.ui64End > ui64Stack;
    });
    return stack != mappings.end() && ui64Accessed < stack->ui64Start &&
           stack->ui64Start - ui64Accessed <= GUARD_BYTES && ui64Accessed + nPage >= ui64Stack;
}

class CReport
{
public:
    explicit CReport(const SCrashRecord& record) : m_record(record) {}

    void Write()
    {
        char line[CRASH_LINE_SIZE];
        FormatCrashLine(line, ExceptionOf(m_record, IsStackExhausted(m_record)), m_record.iThread);
        WriteLine(line);
        char name[CRASH_LINE_SIZE];
        FormatDumpName(name, m_record);
        const uint32_t dwSysError = WriteDump(name);
        if (dwSysError == SYS_NONE)
            FormatDumpCreated(line, name);
        else
            FormatDumpFailed(line, name, dwSysError);
        WriteLine(line);
    }
    bool HangsBehind() const { return m_bHangsBehind; } ///< a thread of this process will never end

private:
    void WriteLine(const std::string& strLine)
    {
        WriteConsole(true, strLine + "\n", EColour::Grey, false);
        m_bHangsBehind |= !RunWithin(LOG_LIMIT, [log = m_record.log, iThread = m_record.iThread, strLine] {
            WriteCrashLog(log, iThread, strLine.c_str());
        });
    }

    uint32_t WriteDump(const std::string& strName)
    {
        const auto pError = std::make_shared<SError>(SError{LIB_OTHER, SYS_GENERAL_FAILURE}); // stays when it raises
        const bool bInTime = RunWithin(DUMP_LIMIT, [record = m_record, strName, pError] {
            CCoreDump dump(record);
            *pError = dump.Write(strName.c_str()) ? SError{} : LastError();
        });
        if (bInTime)
            return pError->dwSysError;
        m_bHangsBehind = true;
        RemoveFile(strName.c_str());
        return SYS_TIMEOUT;
    }

    const SCrashRecord m_record;
    bool m_bHangsBehind = false;
};

} // namespace

bool RunCrashHelperIfAsked(int argc, char** argv, int& iExitCode)
{
    if (argc != 2 || std::string_view(argv[1]) != HELPER_ARGUMENT)
        return false;
    const auto pRecord = std::make_unique<SCrashRecord>();
    iExitCode = ReadRecord(*pRecord) ? 0 : 1;
    if (iExitCode != 0)
        return true;
    CReport report(*pRecord);
    report.Write();
    if (report.HangsBehind())
        _exit(iExitCode);
    return true;
}

} // namespace Platform
