#include "Platform/Caller.h"

#include <cctype>
#include <csignal>
#include <cstdlib>
#include <pwd.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Platform {

namespace {

/// The first part of the entry, in which "&" stands for the login name with a capital letter.
std::string FullNameOf(const passwd& entry)
{
    std::string strName;
    for (const char* pNext = entry.pw_gecos; pNext != nullptr && *pNext != '\0' && *pNext != ','; ++pNext) {
        if (*pNext != '&') {
            strName += *pNext;
            continue;
        }
        const size_t nLogin = strName.size();
        strName += entry.pw_name;
        if (nLogin < strName.size())
            strName[nLogin] = static_cast<char>(std::toupper(static_cast<unsigned char>(strName[nLogin])));
    }
    return strName;
}

} // namespace

bool HasLentRights() { return getauxval(AT_SECURE) != 0; }

void ForgetSurroundings()
{
    close_range(STDERR_FILENO + 1, ~0U, 0);
    umask(0);
    std::signal(SIGXFSZ, SIG_IGN); // a file that may not grow is told as an error
    std::signal(SIGPIPE, SIG_IGN);
    if (!HasLentRights())
        return;
    clearenv();
    const rlimit none{};
    setrlimit(RLIMIT_CORE, &none);
    prctl(PR_SET_DUMPABLE, 0);
}

bool FindCaller(SCaller& caller)
{
    caller.nUser = getuid();
    const passwd* const pEntry = getpwuid(caller.nUser); // NOLINT(concurrency-mt-unsafe): one thread
    if (pEntry == nullptr)
        return false;
    caller.strLogin = pEntry->pw_name;
    caller.strFullName = FullNameOf(*pEntry);
    return true;
}

/// Only what was lent can be missing afterwards: giving it up for a while needs no right, and taking it back neither.
CLentRightsLaidDown::CLentRightsLaidDown() : m_nLent(getegid())
{
    if (setegid(getgid()) != 0)
        std::abort();
}

CLentRightsLaidDown::~CLentRightsLaidDown()
{
    if (setegid(m_nLent) != 0)
        std::abort();
}

} // namespace Platform
