#include "Responder/CToldMark.h"

#include "Bex/CReplacingFile.h"
#include "Bex/TextFunctions.h"
#include "Platform/Errors.h"
#include "Platform/FileIdentity.h"
#include "Platform/FileSystem.h"
#include "Responder/CAnswer.h"

#include <stdexcept>
#include <string>

void RemoveIfPresent(const Bex::CSimpleString& strPath)
{
    const Platform::EPathKind kind = Platform::KindOf(strPath.Text());
    const bool bTooLong = kind == Platform::EPathKind::Failed &&
                          Platform::LastError().dwSysError == Platform::SYS_FILENAME_TOO_LONG; // there is no such file
    if (kind != Platform::EPathKind::Missing && kind != Platform::EPathKind::Directory && !bTooLong)
        Bex::CFile::Remove(strPath);
}

CToldMark::CToldMark(const Bex::CSimpleString& strMail, EWho who)
{
    Platform::SFileIdentity identity;
    if (!Platform::IdentityOf(strMail.Text(), identity))
        throw std::runtime_error(std::string("there is no mail \"") + strMail.Text() + "\"");
    const auto strName = Bex::CSimpleString::Formatted(
        ".%llu-%lld.%s", static_cast<unsigned long long>(identity.nNumber), static_cast<long long>(identity.iModified),
        who == EWho::Sender ? "sender-told" : "postmaster-told");
    m_strPath = Bex::PathBelow(DirectoryOf(strMail), strName);
}

bool CToldMark::IsSet() const { return Platform::KindOf(m_strPath.Text()) != Platform::EPathKind::Missing; }

void CToldMark::Set() const { Bex::CReplacingFile(m_strPath).Commit(); }

void CToldMark::Remove() const { RemoveIfPresent(m_strPath); }
