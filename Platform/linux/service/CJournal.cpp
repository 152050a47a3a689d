#include "Platform/CJournal.h"

#include "Platform/Process.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/net/LocalAddress.h"

#include <cstdint>
#include <sys/stat.h>

namespace Platform {

namespace {

constexpr const char SYSTEM_SOCKET[] = "/run/systemd/journal/socket";
constexpr size_t USUAL_ENTRY = 1024; // bytes

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
    : m_strSocket(Variable("TOBIX_JOURNAL_SOCKET")),
      m_iDescriptor(GuardedCall({EFault::LocalSocket}, [] { return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0); }))
{
    if (m_strSocket.empty())
        m_strSocket = SYSTEM_SOCKET;
}

CJournal::~CJournal() { CDescriptor(m_iDescriptor).Close(); }

/// The library's own function would wait while the journal is busy.
bool CJournal::Send(std::span<const SField> fields) const
{
    std::string strEntry;
    strEntry.reserve(USUAL_ENTRY);
    for (const SField& field : fields)
        AppendField(strEntry, field);
    SLocalAddress address;
    if (!address.Set(m_strSocket.c_str()))
        return false;
    const auto send = [&] {
        return sendto(m_iDescriptor, strEntry.data(), strEntry.size(), MSG_DONTWAIT | MSG_NOSIGNAL, address.Get(),
                      sizeof address.name);
    };
    return GuardedCall({EFault::LocalSocket}, send) >= 0 || FailWithErrno();
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
