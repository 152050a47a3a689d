#include "Platform/linux/file/ShareClaim.h"

#include "Platform/linux/base/GuardedCall.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <unistd.h>

namespace Platform {

namespace {

/// How a file may be opened: the access times the sharing. Of those that conflict with a frequent one many are
/// neighbours, which are asked for together.
struct SUse
{
    EAccess access;
    EShare share;
};
constexpr SUse USES[] = {
    {EAccess::Read, EShare::DenyNone},   {EAccess::Read, EShare::DenyWrite},
    {EAccess::Read, EShare::DenyRead},   {EAccess::Read, EShare::Exclusive},
    {EAccess::Write, EShare::DenyRead},  {EAccess::ReadWrite, EShare::DenyRead},
    {EAccess::Write, EShare::Exclusive}, {EAccess::ReadWrite, EShare::Exclusive},
    {EAccess::Write, EShare::DenyWrite}, {EAccess::ReadWrite, EShare::DenyWrite},
    {EAccess::Write, EShare::DenyNone},  {EAccess::ReadWrite, EShare::DenyNone},
};
constexpr int USE_COUNT = sizeof(USES) / sizeof(USES[0]);

// Each use has a range of bytes, far behind what any file holds, and each opener a byte of its own in that.
constexpr off_t FIRST_BYTE = off_t{1} << 62;
constexpr off_t RANGE = off_t{1} << 43;
constexpr off_t DESCRIPTORS_PER_PROCESS = off_t{1} << 20;

constexpr bool Denies(EShare share, EAccess access)
{
    return share == EShare::Exclusive || (share == EShare::DenyRead && access != EAccess::Write) ||
           (share == EShare::DenyWrite && access != EAccess::Read);
}

constexpr bool Conflicts(const SUse& one, const SUse& other)
{
    return Denies(one.share, other.access) || Denies(other.share, one.access);
}

constexpr int IndexOf(const SOpenMode& mode)
{
    int iUse = 0;
    while (USES[iUse].access != mode.access || USES[iUse].share != mode.share)
        ++iUse;
    return iUse;
}

constexpr int UNFINISHED = -1; ///< a range of its own, which conflicts with no use

constexpr off_t Start(int iUse) { return FIRST_BYTE + iUse * RANGE; }

/// An opener that only reads gets no lock but a shared one, one that only writes no other than an exclusive one.
bool Lock(int iDescriptor, int iUse, bool bTake)
{
    struct flock lock
    {};
    const bool bReads = iUse == UNFINISHED || USES[iUse].access == EAccess::Read;
    lock.l_type = static_cast<short>(!bTake ? F_UNLCK : bReads ? F_RDLCK : F_WRLCK);
    lock.l_start = Start(iUse) + off_t{getpid()} * DESCRIPTORS_PER_PROCESS + iDescriptor % DESCRIPTORS_PER_PROCESS;
    lock.l_len = 1;
    return GuardedCall({EFault::Lock}, [&] { return fcntl(iDescriptor, F_OFD_SETLK, &lock); }) == 0;
}

/// Whether anybody else uses the file in one of the ways from the first up to the end.
bool IsUsed(int iDescriptor, int iFirst, int iEnd)
{
    struct flock lock
    {};
    lock.l_type = F_WRLCK;
    lock.l_start = Start(iFirst);
    lock.l_len = (iEnd - iFirst) * RANGE;
    if (fcntl(iDescriptor, F_OFD_GETLK, &lock) != 0)
        return true;
    errno = EAGAIN;
    return lock.l_type != F_UNLCK;
}

} // namespace

bool ClaimShare(int iDescriptor, const SOpenMode& mode)
{
    const int iUse = IndexOf(mode);
    if (!Lock(iDescriptor, iUse, true))
        return false;
    for (int iFirst = 0; iFirst < USE_COUNT; ++iFirst) {
        int iEnd = iFirst;
        while (iEnd < USE_COUNT && Conflicts(USES[iUse], USES[iEnd]))
            ++iEnd;
        if (iEnd > iFirst && IsUsed(iDescriptor, iFirst, iEnd))
            return false;
        iFirst = iEnd;
    }
    return true;
}

bool ClaimUnfinished(int iDescriptor, const SOpenMode& before)
{
    return Lock(iDescriptor, UNFINISHED, true) && Lock(iDescriptor, IndexOf(before), false);
}

bool IsUnfinished(int iDescriptor) { return IsUsed(iDescriptor, UNFINISHED, UNFINISHED + 1); }

bool ReplaceClaim(int iDescriptor, const SOpenMode& before, const SOpenMode& after)
{
    return Lock(iDescriptor, IndexOf(after), true) && Lock(iDescriptor, IndexOf(before), false);
}

} // namespace Platform
