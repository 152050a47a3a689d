#pragma once

#include "Bex/CSimpleString.h"
#include "Platform/FileIdentity.h"

#include <string_view>

/// CFileException unless the file is gone then. A directory of that name stays.
void RemoveIfPresent(const Bex::CSimpleString& strPath);

/// The mark that somebody has been told that a mail came back, or need not be: an empty file beside the mail. A run
/// that comes after one that failed half-way tells nobody anew, and deletes no mail whose sender was not told.
///
/// It is named after the file that the mail is, not after its name: another mail that gets the name later begins
/// anew, and no name is too long for it. Used by one thread.
class CToldMark
{
public:
    enum class EWho { Sender, Postmaster };

    CToldMark(const Bex::CSimpleString& strMail, EWho who); ///< std::runtime_error unless there is such a mail
    bool IsSet() const;
    void Set() const;    ///< CFileException
    void Remove() const; ///< CFileException

    static Bex::CSimpleString Name(const Platform::SFileIdentity& mail, EWho who);
    static bool IsName(std::string_view name); ///< of a mark

private:
    Bex::CSimpleString m_strPath;
};
