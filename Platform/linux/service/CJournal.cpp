#include "Platform/CJournal.h"

#include "Platform/Clock.h"
#include "Platform/Process.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/net/LocalDatagram.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <sys/stat.h>

namespace Platform {

namespace {

constexpr const char SYSTEM_SOCKET[] = "/run/systemd/journal/socket";
constexpr size_t USUAL_ENTRY = 1024;      // bytes
constexpr int LONGEST_WAIT = 5000;        // microseconds, for one entry
constexpr int64_t MOST_WAITING = 20'000;  // microseconds, in a burst
constexpr uint64_t MICROS_PER_MILLI = 20; // of waiting, in the long run

/// As the journal's native protocol has it: a value with line ends is preceded by its length.
void AppendField(std::string& strEntry, const CJournal::SField& field)
{
    strEntry += field.name;
    if (field.value.find('\n') == std::string_view::npos) {
        strEntry += '=';
    } else {
        strEntry += '\n';
        for (uint64_t nLength = field.value.size(), n = 0; n < sizeof nLength; ++n, nLength >>= 8)
            strEntry += static_cast<char>(nLength & 0xff);
    }
    strEntry += field.value;
    strEntry += '\n';
}

std::string Variable(const char* pszName)
{
    bool bPresent = false;
    return EnvironmentVariable(pszName, bPresent);
}

} // namespace

CJournal::CJournal()
    : m_strSocket(Variable("TOBIX_JOURNAL_SOCKET")), m_iDescriptor(OpenLocalDatagrams(LONGEST_WAIT)),
      m_iMicrosLeft(MOST_WAITING)
{
    if (m_strSocket.empty())
        m_strSocket = SYSTEM_SOCKET;
}

CJournal::~CJournal() { CDescriptor(m_iDescriptor).Close(); }

/// The library's own function would wait for as long as the journal is stuck.
bool CJournal::Send(std::span<const SField> fields)
{
    std::string strEntry;
    strEntry.reserve(USUAL_ENTRY);
    for (const SField& field : fields)
        AppendField(strEntry, field);
    SLocalAddress address;
    if (!address.Set(m_strSocket.c_str()))
        return false;
    const auto Send = [&](bool bWait) { return SendLocalDatagram(m_iDescriptor, address, strEntry, bWait); };
    return Send(false) || (errno == EAGAIN && SendPatiently(Send)) || FailWithErrno();
}

bool CJournal::SendPatiently(const std::function<bool(bool)>& Send)
{
    const std::lock_guard lock(m_waiting);
    const uint64_t nNow = TickCount();
    const uint64_t nGiven = std::min<uint64_t>((nNow - m_nGivenTicks) * MICROS_PER_MILLI, MOST_WAITING);
    m_iMicrosLeft = std::min<int64_t>(m_iMicrosLeft + static_cast<int64_t>(nGiven), MOST_WAITING);
    m_nGivenTicks = nNow;
    if (m_iMicrosLeft <= 0) {
        errno = EAGAIN;
        return false;
    }
    const auto begin = std::chrono::steady_clock::now();
    const bool bSent = Send(true);
    const int iErrno = errno;
    m_iMicrosLeft -=
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin).count();
    errno = iErrno;
    return bSent;
}

/// The variables are handed on to whatever a service starts: each says which process, or which stream, it means.
bool CJournal::IsExpected()
{
    return Variable("SYSTEMD_EXEC_PID") == std::to_string(CurrentProcessId()) || TakesStandardError();
}

bool CJournal::TakesStandardError()
{
    struct stat status;
    return fstat(STDERR_FILENO, &status) == 0 &&
           Variable("JOURNAL_STREAM") == std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
}

} // namespace Platform
