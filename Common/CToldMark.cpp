#include "Common/CToldMark.h"

#include "Bex/CReplacingFile.h"
#include "Bex/TextFunctions.h"
#include "Platform/Errors.h"
#include "Platform/FileSystem.h"

#include <stdexcept>
#include <string>

namespace {

constexpr char SENDER[] = ".sender-told";
constexpr char POSTMASTER[] = ".postmaster-told";

} // namespace

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
    const std::string_view mail = strMail;
    m_strPath = Bex::PathBelow(mail.substr(0, mail.rfind('/') + 1), Name(identity, who)); // else of this directory
}

Bex::CSimpleString CToldMark::Name(const Platform::SFileIdentity& mail, EWho who)
{
    return Bex::CSimpleString::Formatted(".%llu-%lld%s", static_cast<unsigned long long>(mail.nNumber),
                                         static_cast<long long>(mail.iModified),
                                         who == EWho::Sender ? SENDER : POSTMASTER);
}

bool CToldMark::IsName(std::string_view name)
{
    return name.starts_with('.') && (name.ends_with(SENDER) || name.ends_with(POSTMASTER));
}

bool CToldMark::IsSet() const { return Platform::KindOf(m_strPath.Text()) != Platform::EPathKind::Missing; }

void CToldMark::Set() const { Bex::CReplacingFile(m_strPath).Commit(); }

void CToldMark::Remove() const { RemoveIfPresent(m_strPath); }
