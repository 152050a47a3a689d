#include "Bex/TextFunctions.h"
#include "Common/CConfigCheck.h"
#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Control/CheckSteps.h"
#include "Control/LoadConfiguration.h"
#include "Control/TellProblems.h"
#include "Platform/FileIdentity.h"
#include "Platform/FileSystem.h"

#include <algorithm>
#include <map>

namespace {

std::string ReasonOf(const Bex::CSimpleString& strDirectory)
{
    switch (Platform::KindOf(strDirectory.Text())) {
    case Platform::EPathKind::Directory:
        return Platform::MayFill(strDirectory.Text()) ? "" : "is not writable: " + ErrorText(Platform::LastError());
    case Platform::EPathKind::Missing:
        return "is missing";
    case Platform::EPathKind::Failed:
        return "cannot be seen: " + ErrorText(Platform::LastError());
    default:
        return "is no directory";
    }
}

/// A directory that two keys name would have the mail of one taken for that of the other.
class CSharedDirectories
{
public:
    /// The key that has named it before; null: none.
    const char* Note(const Bex::CPathKey& key, const Bex::CSimpleString& strDirectory)
    {
        Platform::SFileIdentity directory;
        if (!Platform::IdentityOf(strDirectory.Text(), directory, Platform::ELinks::Follow))
            return nullptr;
        const auto [place, bNew] = m_keys.try_emplace({directory.nDevice, directory.nNumber}, key.Name());
        return bNew ? nullptr : place->second;
    }

private:
    std::map<std::pair<uint64_t, uint64_t>, const char*> m_keys;
};

void CheckAccount(const Bex::CSimpleString& strUser, CFindings& findings)
{
    const Bex::CSimpleString strDirectory = Users().UserDirectory(strUser);
    const Bex::CSimpleString strFile = Bex::JoinPath(strDirectory, "config");
    const std::string strReason = ReasonOf(strDirectory);
    if (!strReason.empty())
        findings.Error({strDirectory.Text()}, "the mailbox " + strReason);
    CConfigCheck account(AccountKeys::TABLE);
    const Platform::SError error = LoadError(account, strFile);
    if (error.dwSysError != 0) {
        findings.Error({strFile.Text()}, "mail for " + std::string(strUser.Text()) +
                                             " fails, as the account file cannot be read: " + ErrorText(error));
        return;
    }
    TellProblems(account, AccountKeys::TABLE, findings);
    const CFindings::SPlace place{strFile.Text(), account.LineOf(AccountKeys::RUN_REPLY.Name())};
    const Bex::CSimpleString strTemplate = account.GetString(AccountKeys::RUN_REPLY_TEMPLATE);
    if (!account.GetFlag(AccountKeys::RUN_REPLY))
        return;
    if (strTemplate.IsEmpty())
        findings.Warn(place, "nobody gets a reply, as RunReplyTemplate names no template");
    else if (Platform::KindOf(Bex::JoinPath(strDirectory, strTemplate).Text()) != Platform::EPathKind::File)
        findings.Warn(place, "the template of the reply, " + Quoted(strTemplate) + ", is no file");
}

} // namespace

void CheckDirectories(const Bex::CSimpleString& strPath, CFindings& findings)
{
    CConfigCheck config(Keys::TABLE);
    LoadError(config, strPath);
    CSharedDirectories shared;
    const auto Look = [&](const Bex::CPathKey& key, bool bRequired) {
        const Bex::CSimpleString strDirectory = Config().GetPath(key);
        const CFindings::SPlace place{strPath.Text(), config.LineOf(key.Name())};
        const std::string strText = std::string(key.Name()) + ": " + Quoted(strDirectory) + " ";
        const std::string strReason = ReasonOf(strDirectory);
        if (!strReason.empty() && bRequired)
            findings.Error(place, strText + strReason);
        else if (!strReason.empty())
            findings.Warn(place, strText + strReason);
        else if (const char* const pszOther = shared.Note(key, strDirectory))
            findings.Error(place, strText + "is the directory of " + pszOther + ", too");
    };
    for (const Bex::CPathKey& key : Keys::REQUIRED_DIRECTORIES)
        Look(key, true);
    if (!Config().GetPath(Keys::LOCK_DIR).IsEmpty())
        Look(Keys::LOCK_DIR, true);
    Look(Keys::FILTER_DIR, false);
    if (config.LineOf(Keys::INTERCEPT_DIR.Name()) != 0)
        Look(Keys::INTERCEPT_DIR, false);
}

void CheckAccounts(CFindings& findings)
{
    const Bex::CSimpleString strSpool = Config().GetPath(Keys::SPOOL_DIR);
    if (!Users().ReadUsers(strSpool)) {
        findings.Error({strSpool.Text()}, "the mailboxes cannot be listed: " + ErrorText(Platform::LastError()));
        return;
    }
    for (const Bex::CSimpleString& strUser : Users().Names())
        CheckAccount(strUser, findings);
}
