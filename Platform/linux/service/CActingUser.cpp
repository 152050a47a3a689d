#include "Platform/CActingUser.h"

#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"

#include <algorithm>
#include <array>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <vector>

namespace Platform {

namespace {

constexpr size_t RECORD_BYTES = 16'384;
constexpr int MOST_GROUPS = 65'536; // of Linux

/// A record of the user data base, and the room that its texts take.
struct SUserRecord
{
    passwd entry{};
    std::array<char, RECORD_BYTES> texts;

    template <class TAsk>
    bool Find(TAsk Ask) ///< false: LastError
    {
        passwd* pFound = nullptr;
        errno = Ask(&entry, texts.data(), texts.size(), &pFound);
        if (pFound != nullptr)
            return true;
        if (errno == 0)
            errno = ENOENT;
        return FailWithErrno();
    }
    bool FindName(const char* pszUser)
    {
        return Find([pszUser](auto... rest) { return getpwnam_r(pszUser, rest...); });
    }
    bool FindNumber(uid_t user)
    {
        return Find([user](auto... rest) { return getpwuid_r(user, rest...); });
    }
};

std::vector<gid_t> GroupsOf(const char* pszUser, gid_t group)
{
    std::vector<gid_t> groups(1);
    for (int nGroups = 1; getgrouplist(pszUser, group, groups.data(), &nGroups) < 0 && nGroups <= MOST_GROUPS;)
        groups.resize(static_cast<size_t>(nGroups));
    return groups;
}

} // namespace

struct CActingUser::SIdentity
{
    uid_t user;
    gid_t group;
    std::vector<gid_t> groups;

    static SIdentity Present()
    {
        std::vector<gid_t> groups(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
        groups.resize(static_cast<size_t>(std::max(getgroups(static_cast<int>(groups.size()), groups.data()), 0)));
        return {geteuid(), getegid(), groups};
    }
    bool Take() const ///< groups first, which a plain user may not change
    {
        return Succeeded(GuardedCall({EFault::ChangeUser}, [&] { return setgroups(groups.size(), groups.data()); })) &&
               Succeeded(GuardedCall({EFault::ChangeUser}, [&] { return setegid(group); })) &&
               Succeeded(GuardedCall({EFault::ChangeUser}, [&] { return seteuid(user); }));
    }
    void TakeBack() const ///< what cannot be had back is done without
    {
        [[maybe_unused]] const int iUser = seteuid(user);
        [[maybe_unused]] const int iGroup = setegid(group);
        [[maybe_unused]] const int iGroups = setgroups(groups.size(), groups.data());
    }
};

CActingUser::CActingUser() = default;

CActingUser::~CActingUser()
{
    if (m_pBefore)
        m_pBefore->TakeBack();
}

bool CActingUser::Become(const SIdentity& wanted)
{
    if (wanted.user == geteuid())
        return true;
    auto pBefore = std::make_unique<SIdentity>(SIdentity::Present());
    if (wanted.Take()) {
        m_pBefore = std::move(pBefore);
        return true;
    }
    const SError error = LastError();
    pBefore->TakeBack();
    SetLastError(error);
    return false;
}

bool CActingUser::Become(const char* pszUser)
{
    SUserRecord record;
    return record.FindName(pszUser) &&
           Become({record.entry.pw_uid, record.entry.pw_gid, GroupsOf(pszUser, record.entry.pw_gid)});
}

bool CActingUser::BecomeOwnerOf(const char* pszPath)
{
    struct stat status
    {};
    if (!Succeeded(GuardedCall({EFault::Stat, pszPath}, [&] { return stat(pszPath, &status); })))
        return false;
    SUserRecord record; // a number without a name has the one group
    return Become(record.FindNumber(status.st_uid)
                      ? SIdentity{status.st_uid, status.st_gid, GroupsOf(record.entry.pw_name, status.st_gid)}
                      : SIdentity{status.st_uid, status.st_gid, {status.st_gid}});
}

bool IsAdministrator() { return geteuid() == 0; }

bool UserExists(const char* pszUser)
{
    SUserRecord record;
    return record.FindName(pszUser);
}

} // namespace Platform
