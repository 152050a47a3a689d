#pragma once

#include "Bex/CConfigFile.h"
#include "Bex/CSimpleString.h"

#include <cstdint>
#include <map>
#include <string>

/// The numbers of mail in accounts into which several hosts store (`LockDir`): next to the locks lies, for each
/// account, one empty file whose name is "<next number>.<NextUID of the account file>.<host that gave the last one>".
///
/// What another host has written may be read late from a cluster file system, but a name can be moved only by one. So
/// no number is given twice, not even where two hosts take the same lock for theirs, and the account file is written
/// but once for many mails: what an administrator changes in it meanwhile stays. Its NextUID is ahead of all numbers
/// given, which makes it right again once `LockDir` is taken out, or the file here has gone; where it is higher than
/// the file here says, somebody has set it, and the numbers go on from there.
///
/// Owned by the mailbox store and used on its thread, under the account's lock.
class CSharedNumbers
{
public:
    /// The host's own name tells a move by it from the same move by another one, which the system would take for done.
    CSharedNumbers(const Bex::CSimpleString& strLockDirectory, const Bex::CSimpleString& strHost);

    /// The next number; it is used up then, also when no mail gets it. CFileException, always busy (what it was is
    /// logged once), when it cannot be had now. Saves the account file where its NextUID is reached.
    uint32_t Take(const Bex::CSimpleString& strAccount, Bex::CConfigFile& account);
    Bex::CSimpleString DirectoryOf(const Bex::CSimpleString& strAccount) const;

private:
    struct SNext
    {
        uint32_t dwNumber = 0; ///< 0: unknown
        uint32_t dwBound = 0;  ///< NextUID, as the account file was saved

        Bex::CSimpleString strHost;

        Bex::CSimpleString FileName() const;
        static SNext Of(const char* pszFileName); ///< unknown for another name
    };
    static bool Find(const Bex::CSimpleString& strDirectory, SNext& next);
    static bool Move(const Bex::CSimpleString& strDirectory, const SNext& from, const SNext& to);
    bool Begin(const Bex::CSimpleString& strAccount, const SNext& first) const;
    static void Raise(const Bex::CSimpleString& strDirectory, SNext& next, Bex::CConfigFile& account);
    [[noreturn]] void Fail(const Bex::CSimpleString& strDirectory);

    Bex::CSimpleString m_strDirectory;
    Bex::CSimpleString m_strHost;
    std::map<std::string, SNext> m_known; ///< by account: as this host left it
    bool m_bTold = false;                 ///< that they cannot be had
};
