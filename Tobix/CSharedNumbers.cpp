#include "Tobix/CSharedNumbers.h"

#include "Bex/CFileException.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Platform/CDirectoryListing.h"
#include "Platform/CFileHandle.h"
#include "Platform/CNamedMutex.h"
#include "Platform/FileSystem.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/CSharedNumbers";
constexpr uint32_t AHEAD = 1000; ///< mails for which the account file is saved once
constexpr int MOST_TRIES = 8;    ///< at a name that others move

/// What another host makes meanwhile is as good.
bool IsMade(const Bex::CSimpleString& strDirectory)
{
    return Platform::CreateOneDirectory(strDirectory.Text()) || Platform::LastError().iLibError == Platform::LIB_EXISTS;
}

/// The names that were listed or remembered are not those that are there.
bool WasMovedByOthers(Platform::SError error)
{
    return error.iLibError == Platform::LIB_NO_ENTRY || error.iLibError == Platform::LIB_EXISTS ||
           error.iLibError == Platform::LIB_NOT_EMPTY || error.dwSysError == Platform::SYS_SHARING_VIOLATION;
}

} // namespace

CSharedNumbers::SNext CSharedNumbers::SNext::Of(const char* pszFileName)
{
    SNext next;
    const char* const pEnd = pszFileName + std::strlen(pszFileName);
    const auto [pDot, error] = std::from_chars(pszFileName, pEnd, next.dwNumber);
    if (error != std::errc() || *pDot != '.')
        return {};
    const auto [pNextDot, errorOfBound] = std::from_chars(pDot + 1, pEnd, next.dwBound);
    if (errorOfBound != std::errc() || *pNextDot != '.')
        return {};
    next.strHost = std::string_view(pNextDot + 1, pEnd);
    return next;
}

Bex::CSimpleString CSharedNumbers::SNext::FileName() const
{
    return Bex::CSimpleString::Formatted("%u.%u.%s", dwNumber, dwBound, strHost.Text());
}

CSharedNumbers::CSharedNumbers(const Bex::CSimpleString& strLockDirectory, const Bex::CSimpleString& strHost)
    : m_strDirectory(Bex::PathBelow(Platform::CNamedMutex::PlaceBelow(strLockDirectory.View()), "next")),
      m_strHost(strHost)
{}

Bex::CSimpleString CSharedNumbers::DirectoryOf(const Bex::CSimpleString& strAccount) const
{
    return Bex::PathBelow(m_strDirectory, strAccount);
}

/// What this host remembers is no ground for a change of the account file.
uint32_t CSharedNumbers::Take(const Bex::CSimpleString& strAccount, Bex::CConfigFile& account)
{
    const Bex::CSimpleString strDirectory = DirectoryOf(strAccount);
    const auto dwNextUID = static_cast<uint32_t>(std::max(account.GetInt(AccountKeys::NEXT_UID), 1));
    SNext& known = m_known[strAccount.Text()];
    for (int nTries = 0; nTries < MOST_TRIES; ++nTries) {
        SNext found = std::exchange(known, {});
        const auto IsEnough = [&found, dwNextUID] {
            return found.dwNumber < found.dwBound && dwNextUID <= found.dwBound;
        };
        if (!IsEnough() && !Find(strDirectory, found))
            break;
        SNext next{found.dwNumber, found.dwBound, m_strHost};
        if (dwNextUID > found.dwBound)
            next.dwNumber = next.dwBound = dwNextUID;
        const uint32_t dwNumber = next.dwNumber++;
        if (!IsEnough())
            next.dwBound = next.dwNumber;
        if (found.dwNumber == 0 ? Begin(strAccount, next) : Move(strDirectory, found, next)) {
            known = next;
            m_bTold = false;
            if (!IsEnough())
                Raise(strDirectory, known, account);
            return dwNumber;
        }
        if (!WasMovedByOthers(Platform::LastError()))
            break;
    }
    Fail(strDirectory);
}

/// The highest one, should somebody have put others there; unknown where there is none.
bool CSharedNumbers::Find(const Bex::CSimpleString& strDirectory, SNext& next)
{
    next = {};
    Platform::CDirectoryListing listing;
    if (!listing.Read(strDirectory.Text()))
        return Platform::LastError().iLibError == Platform::LIB_NO_ENTRY;
    for (size_t n = 0; n < listing.Count(); ++n) {
        if (const SNext entry = SNext::Of(listing.At(n).pszName); entry.dwNumber > next.dwNumber)
            next = entry;
    }
    return true;
}

bool CSharedNumbers::Move(const Bex::CSimpleString& strDirectory, const SNext& from, const SNext& to)
{
    return Platform::RenameReplacing(Bex::PathBelow(strDirectory, from.FileName()).Text(),
                                     Bex::PathBelow(strDirectory, to.FileName()).Text());
}

/// A directory that holds the file takes the account's name: that is refused where another one with a file has it.
bool CSharedNumbers::Begin(const Bex::CSimpleString& strAccount, const SNext& first) const
{
    const Bex::CSimpleString strOwn =
        Bex::PathBelow(m_strDirectory, Bex::CSimpleString::Formatted(".%s", m_strHost.Text()));
    const Bex::CSimpleString strNew = Bex::PathBelow(strOwn, strAccount);
    if (!IsMade(m_strDirectory) || !IsMade(strOwn) || !IsMade(strNew))
        return false;
    Platform::CFileHandle file;
    const bool bThere = file.Open(Bex::PathBelow(strNew, first.FileName()).Text(),
                                  {.access = Platform::EAccess::Write, .bCreate = true});
    return bThere && Platform::RenameReplacing(strNew.Text(), DirectoryOf(strAccount).Text());
}

/// While the account file cannot be saved each mail tries anew. It is raised once the number is had: else what keeps
/// the numbers from being moved would drive it on, mail by mail.
void CSharedNumbers::Raise(const Bex::CSimpleString& strDirectory, SNext& next, Bex::CConfigFile& account)
{
    SNext raised = next;
    raised.dwBound += AHEAD;
    try {
        account.SetNextUID(raised.dwBound);
        if (!account.HasChanged() && account.Save() && Move(strDirectory, next, raised))
            next = raised;
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
    }
}

void CSharedNumbers::Fail(const Bex::CSimpleString& strDirectory)
{
    const Platform::SError error = Platform::LastError();
    if (!std::exchange(m_bTold, true))
        Bex::LogError(Bex::MainLog(), "no number can be had from \"%s\" (SysError=%d, LibError=%d): mail has to wait",
                      strDirectory.Text(), static_cast<int>(error.dwSysError), error.iLibError);
    Bex::ThrowFileException(SOURCE_FILE, __LINE__, Platform::LIB_ACCESS, Platform::SYS_SHARING_VIOLATION);
}
