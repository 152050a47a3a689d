#pragma once

#include "Bex/CMutex.h"
#include "Bex/CSimpleString.h"

#include <map>
#include <string>

/// Who got an automatic reply of an account within the last day: the file "responder.replied" in its mailbox directory,
/// one line "seconds address" each.
///
/// Locked, for all programs of this user (AccountLock), from its making to its end; entries older than a day go, and
/// there are at most MOST_SENDERS: then nobody else is answered, as so many senders in a day are no people. Used by one
/// thread.
class CReplyRecord
{
public:
    static constexpr size_t MOST_SENDERS = 5000;

    /// Throws std::runtime_error when the lock is not to be had, CFileException when the file cannot be read.
    explicit CReplyRecord(const Bex::CSimpleString& strMailbox);

    /// Records the sender; false when it was answered within a day or there are too many. The record is on disk
    /// before the reply is: a reply too few does less harm than one to every mail.
    bool Add(std::string_view sender);
    void TakeBack(std::string_view sender); ///< the reply could not be sent

private:
    void Load();
    void Save() const;

    Bex::CSimpleString m_strPath;
    Bex::CMutex m_lock;
    std::map<std::string, int64_t, std::less<>> m_senders; ///< in lower case; when, in seconds since 1970
};
