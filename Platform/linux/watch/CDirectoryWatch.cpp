#include "Platform/CDirectoryWatch.h"

#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/watch/NotifyQueue.h"

#include <strings.h>
#include <utility>

namespace Platform {

namespace {

constexpr uint32_t NAMES_AND_WRITES = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE;
constexpr uint32_t DIRECTORY_WENT = IN_DELETE_SELF | IN_MOVE_SELF;

bool EndsSo(std::string_view strName, const std::string& strEnding)
{
    return strName.size() >= strEnding.size() &&
           strncasecmp(strName.data() + strName.size() - strEnding.size(), strEnding.data(), strEnding.size()) == 0;
}

} // namespace

CDirectoryWatch::~CDirectoryWatch()
{
    if (IsOpen())
        close(m_iDescriptor);
}

bool CDirectoryWatch::Open(const char* pszDirectory, std::string_view ending)
{
    CDescriptor queue(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!queue.IsValid() || AddWatch(queue.Get(), pszDirectory, NAMES_AND_WRITES | DIRECTORY_WENT | IN_ONLYDIR) < 0)
        return FailWithErrno();
    if (IsOpen())
        close(m_iDescriptor);
    m_iDescriptor = queue.Release();
    m_strEnding = ending;
    return true;
}

bool CDirectoryWatch::Close() { return Succeeded(GuardedClose(std::exchange(m_iDescriptor, -1))); }

CDirectoryWatch::EResult CDirectoryWatch::Consume()
{
    uint32_t dwSeen = 0;
    const bool bRead = DrainNotifications(m_iDescriptor, [&](const inotify_event& event, std::string_view strName) {
        if (strName.empty() || EndsSo(strName, m_strEnding)) // without a name: the directory itself, or an overflow
            dwSeen |= event.mask;
    });
    if (!bRead) {
        FailWithErrno();
        return EResult::Failed;
    }
    if ((dwSeen & (DIRECTORY_WENT | IN_IGNORED | IN_UNMOUNT)) != 0)
        return EResult::Broken;
    return dwSeen != 0 ? EResult::Changed : EResult::Unchanged;
}

} // namespace Platform
