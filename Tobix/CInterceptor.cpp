#include "Tobix/CInterceptor.h"

#include "Bex/CDirectory.h"
#include "Bex/CFileException.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/CMD5.h"
#include "Common/Encodings.h"
#include "Platform/Clock.h"
#include "Platform/FileSystem.h"
#include "Tobix/MailLog.h"

#include <exception>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/Interceptor";
constexpr size_t LONGEST_PART = 200;
constexpr size_t KEPT_OF_LONG_PART = 160;

bool IsSafe(char c) { return c != '/' && static_cast<unsigned char>(c) >= ' ' && c != '\x7f'; }

Bex::CSimpleString CopyName(const CMail& mail, const char* pszKind)
{
    const Platform::SLocalTime now = Platform::LocalNow();
    return Bex::CSimpleString::Formatted("%04d%02d%02d%02d%02d%02d_%s_%s.eml", now.iYear, now.iMonth, now.iDay,
                                         now.iHour, now.iMinute, now.iSecond, SafeFileNamePart(mail.MessageID()).Text(),
                                         pszKind);
}

} // namespace

Bex::CSimpleString SafeFileNamePart(std::string_view text)
{
    Bex::CSimpleString strPart(text);
    if (text.size() > LONGEST_PART) {
        CMD5 digest;
        digest.Update(text.data(), text.size());
        strPart = text.substr(0, KEPT_OF_LONG_PART);
        strPart += HexText(digest.Finalise().data(), CMD5::DIGEST_LENGTH);
    }
    for (uint32_t n = 0; n < strPart.Length(); ++n) {
        if (!IsSafe(strPart.At(n)) || (n == 0 && strPart.At(n) == '.'))
            strPart.Set(n, '_');
    }
    return strPart;
}

CInterceptor::CInterceptor(const Bex::CSimpleString& strListFile, const Bex::CSimpleString& strDirectory)
    : m_strDirectory(strDirectory)
{
    m_addresses.Load(strListFile);
}

bool CInterceptor::IsListed(const Bex::CSimpleString& strAddress) const
{
    return !m_addresses.IsEmpty() && m_addresses.ContainsExact(strAddress.Lowered());
}

bool CInterceptor::ReloadIfChanged()
{
    if (!m_addresses.HasFileChanged())
        return true;
    try {
        if (m_addresses.Load(m_addresses.FileName()))
            return true;
        Bex::LogError(Bex::MainLog(), "could not reload 'intercept_addresses'-file");
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
    }
    return false;
}

void CInterceptor::Intercept(const CMail& mail, const Bex::CSimpleString& strAddress, const char* pszKind,
                             CCopyGroup& group)
{
    try {
        if (!Store(mail, strAddress, pszKind, group))
            MailLog::InterceptionFailed(mail);
    } catch (const Bex::CFileException& exception) {
        Bex::LogError(Bex::MainLog(), "intercepting mail <%s> from <%s> to <%s> failed: %d at %s:%d",
                      mail.MessageID().Text(), mail.EnvelopeSender().Text(), mail.FirstRecipient().Text(),
                      exception.SysError(), exception.SourceFile(), exception.Line());
    } catch (const Bex::CException&) { // no lock for the copy's name
        MailLog::InterceptionFailed(mail);
    } catch (const std::exception&) { // no memory
        MailLog::InterceptionFailed(mail);
    }
}

/// An address that looks absolute must stay below the interception directory, too.
Bex::CSimpleString CInterceptor::DirectoryOf(const Bex::CSimpleString& strAddress) const
{
    return Bex::PathBelow(m_strDirectory, SafeFileNamePart(strAddress));
}

bool CInterceptor::Store(const CMail& mail, const Bex::CSimpleString& strAddress, const char* pszKind,
                         CCopyGroup& group)
{
    const Bex::CSimpleString strDirectory = DirectoryOf(strAddress);
    if (!Bex::CDirectory::Exists(strDirectory) && !Platform::CreateOneDirectory(strDirectory.Text()))
        return false;
    if (Platform::KindOf(strDirectory.Text(), false) != Platform::EPathKind::Directory)
        return false; // a link in its place may lead anywhere
    return static_cast<bool>(group.SaveExtra(mail, EWriteMode::Envelope, strDirectory, CopyName(mail, pszKind)));
}
