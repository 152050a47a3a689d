#include "Tobix/CMaildir.h"

#include "Bex/CThread.h"
#include "Bex/TextFunctions.h"
#include "Platform/Clock.h"
#include "Platform/FileSystem.h"
#include "Platform/Host.h"
#include "Platform/Process.h"
#include "Tobix/StaleFiles.h"

#include <cctype>
#include <string>

namespace {

constexpr int64_t MICROS = 1'000'000;

/// What would mean something else in a name stands there by its octal number.
Bex::CSimpleString SafeHostName()
{
    std::string strHost;
    Bex::CSimpleString strSafe;
    if (!Platform::HostName(strHost))
        strHost = "localhost";
    for (const char c : strHost) {
        const auto byte = static_cast<unsigned char>(c);
        const bool bPlain = std::isalnum(byte) != 0 || c == '.' || c == '-' || c == '_';
        strSafe += Bex::CSimpleString::Formatted(bPlain ? "%c" : "\\%03o", byte);
    }
    return strSafe;
}

/// Of one moment, process and number; the account's lock keeps the others away.
Bex::CSimpleString UniqueName(uint32_t dwNumber)
{
    const int64_t iNow = Platform::NowMicros();
    return Bex::CSimpleString::Formatted("%lld.M%lldP%uQ%u.%s", static_cast<long long>(iNow / MICROS),
                                         static_cast<long long>(iNow % MICROS), Platform::CurrentProcessId(), dwNumber,
                                         SafeHostName().Text());
}

/// What another process makes meanwhile is as good.
bool IsOrBecomesDirectory(const Bex::CSimpleString& strPath)
{
    if (Platform::KindOf(strPath.Text(), false) == Platform::EPathKind::Missing &&
        !Platform::CreateOneDirectory(strPath.Text()) && Platform::LastError().iLibError != Platform::LIB_EXISTS)
        return false;
    const Platform::EPathKind kind = Platform::KindOf(strPath.Text(), false);
    if (kind != Platform::EPathKind::Directory && kind != Platform::EPathKind::Failed)
        Platform::SetLastError({Platform::LIB_NOT_DIRECTORY, Platform::SYS_PATH_NOT_FOUND});
    return kind == Platform::EPathKind::Directory;
}

SSaveResult LastFailure() { return {ESaveResult::Failed, Platform::LastError()}; }

} // namespace

CMaildir::CMaildir(const Bex::CSimpleString& strAccountDirectory)
    : m_strRoot(Bex::PathBelow(strAccountDirectory, "Maildir")), m_strTmp(Bex::PathBelow(m_strRoot, "tmp")),
      m_strNew(Bex::PathBelow(m_strRoot, "new"))
{}

/// A link in the place of one of them may lead anywhere.
bool CMaildir::Prepare() const
{
    return IsOrBecomesDirectory(m_strRoot) && IsOrBecomesDirectory(m_strTmp) && IsOrBecomesDirectory(m_strNew) &&
           IsOrBecomesDirectory(Bex::PathBelow(m_strRoot, "cur"));
}

void CMaildir::RemoveLeftovers() const { RemoveOldFiles(m_strTmp, LEFTOVER_SECONDS); }

SSaveResult CMaildir::SaveNew(const CMail& mail, EWriteMode mode,
                              const std::function<bool(const Bex::CSimpleString&)>& Tag, uint32_t& dwNumber,
                              Bex::CSimpleString& strPath) const
{
    SSaveResult saved{ESaveResult::Exists};
    while (saved.result == ESaveResult::Exists) {
        const Bex::CSimpleString strWritten = Bex::PathBelow(m_strTmp, UniqueName(dwNumber++));
        strPath = strWritten;
        saved = mail.SaveNew(strWritten, mode);
        if (!saved)
            continue;
        if (Tag && !Tag(strWritten))
            saved = {ESaveResult::Failed, {Platform::LIB_ACCESS, Platform::SYS_SHARING_VIOLATION}};
        else
            saved = MoveToNew(strWritten, !Tag, strPath);
        if (!saved)
            Platform::RemoveFile(strWritten.Text()); // else it goes with the leftovers
    }
    return saved;
}

SSaveResult CMaildir::MoveToNew(const Bex::CSimpleString& strWritten, bool bNameTellsSize,
                                Bex::CSimpleString& strPath) const
{
    Bex::CSimpleString strName(Bex::NameOf(strWritten));
    if (bNameTellsSize) {
        const int64_t iSize = Platform::FileSize(strWritten.Text());
        if (iSize < 0)
            return LastFailure();
        strName += Bex::CSimpleString::Formatted(",S=%lld", static_cast<long long>(iSize));
    }
    strPath = Bex::PathBelow(m_strNew, strName);
    Bex::CThread::EndIfAbandoned();
    if (Platform::RenameNoReplace(strWritten.Text(), strPath.Text()))
        return {};
    return Platform::LastError().iLibError == Platform::LIB_EXISTS ? SSaveResult{ESaveResult::Exists} : LastFailure();
}
