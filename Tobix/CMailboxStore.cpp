#include "Tobix/CMailboxStore.h"

#include "Bex/CFileException.h"
#include "Bex/CThread.h"
#include "Bex/FrozenLine.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/AccountLock.h"
#include "Common/Globals.h"
#include "Common/MailHlpr.h"
#include "Platform/Clock.h"
#include "Platform/FileSystem.h"
#include "Platform/Host.h"
#include "Tobix/CMaildir.h"
#include "Tobix/MailLog.h"

#include <functional>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/LocalAgent";
constexpr Bex::FrozenLine NOT_WRITTEN_LINE = 313;
constexpr unsigned LOOK_MILLIS = 250;         ///< for a stop, while another program has the lock
constexpr uint64_t OTHER_HOST_MILLIS = 10000; ///< for an account that another host may hold
constexpr uint64_t ASK_AGAIN_MILLIS = 1000;   ///< after that

/// That no other host has, and no other daemon of this one.
Bex::CSimpleString NameOfHost(const Bex::CSimpleString& strQueueDirectory)
{
    std::string strWho;
    Platform::HostName(strWho);
    strWho += '\n';
    strWho += Platform::AbsolutePath(strQueueDirectory.View());
    return Bex::CSimpleString::Formatted("%zx", std::hash<std::string>()(strWho));
}

} // namespace

struct CMailboxStore::SAccount
{
    Bex::CSimpleString strName; ///< of its directory
    Bex::CSimpleString strDirectory;
    Bex::CSimpleString strConfigPath;
    Bex::CConfigFile config;
    Bex::CSimpleString strMailFile; ///< once it is written
    uint32_t dwNextUID = 0;         ///< the number after the one used

    bool IsTaggedInMaildir() const
    {
        return config.GetFlag(AccountKeys::MAILDIR) && config.GetFlag(AccountKeys::RUN_ANTI_SPAM);
    }
};

CMailboxStore::CMailboxStore(const Bex::CSimpleString& strQueueDirectory) : m_strQueueDirectory(strQueueDirectory)
{
    const Bex::CSimpleString strLockDirectory = Config().GetPath(Keys::LOCK_DIR);
    if (strLockDirectory.IsEmpty())
        return;
    const Bex::CSimpleString strHost = NameOfHost(strQueueDirectory);
    m_numbers.emplace(strLockDirectory, strHost);
    m_strTemporary = Bex::CSimpleString::Formatted(".host-%s.eml.tmp", strHost.Text());
}

ERouted CMailboxStore::StoreInMailbox(const CMail& copy, const Bex::CSimpleString& strUser,
                                      const Bex::CSimpleString& strRecipientFileName, CCopyGroup& group)
{
    SAccount account;
    account.strDirectory = Users().UserDirectory(strUser);
    if (account.strDirectory.IsEmpty()) { // no user's name: it could lead out of the spool directory
        Bex::LogError(Bex::MainLog(), "couldn't load account config: %s (error=%d)",
                      Bex::JoinPath(Bex::JoinPath(Users().SpoolRoot(), strUser), "config").Text(),
                      static_cast<int>(Platform::SYS_INVALID_NAME));
        return ERouted::Failed;
    }
    account.strName = Bex::NameOf(account.strDirectory);
    account.strConfigPath = Bex::JoinPath(account.strDirectory, "config");
    Bex::CMutex accountLock = AccountLock(account.strConfigPath);
    ERouted routed = LockAccount(accountLock, account, group);
    if (routed == ERouted::Done)
        routed = LoadAccount(account);
    if (routed == ERouted::Done && Bex::CThread::IsCallerStopped() &&
        (WaitsForPrograms(account) || account.IsTaggedInMaildir()))
        routed = ERouted::Busy;
    if (routed == ERouted::Done)
        routed = WriteMailFile(copy, account, group);
    if (routed != ERouted::Done)
        return routed;
    RecordNextUID(account);
    MailLog::SavedInMailbox(copy, strUser);
    return RunPrograms(account, strRecipientFileName, group);
}

/// One that was waited for in vain holds up the mail of others once only.
ERouted CMailboxStore::LockAccount(Bex::CMutex& lock, const SAccount& account, CCopyGroup& group)
{
    const auto Held = [&] {
        m_strHeld = account.strName.Text();
        return ERouted::Held;
    };
    if (const auto held = m_heldElsewhere.find(account.strName.View()); held != m_heldElsewhere.end()) {
        if (IsHeld(held->first))
            return Held();
        if (lock.Lock(0)) {
            m_heldElsewhere.erase(held);
            return ERouted::Done;
        }
        held->second = Platform::TickCount() + ASK_AGAIN_MILLIS;
        return Held();
    }
    const uint64_t nStarted = Platform::TickCount();
    while (!lock.Lock(LOOK_MILLIS, [&group] { group.EndBeforeWaiting(); })) {
        if (Platform::LastError().dwSysError != Platform::SYS_TIMEOUT || Bex::CThread::IsCallerStopped())
            return ERouted::Busy;
        if (m_numbers && Platform::TickCount() - nStarted >= OTHER_HOST_MILLIS) {
            m_heldElsewhere[account.strName.Text()] = Platform::TickCount() + ASK_AGAIN_MILLIS;
            return Held();
        }
    }
    return ERouted::Done;
}

bool CMailboxStore::IsHeld(std::string_view account) const
{
    const auto held = m_heldElsewhere.find(account);
    return held != m_heldElsewhere.end() && Platform::TickCount() < held->second;
}

ERouted CMailboxStore::LoadAccount(SAccount& account)
{
    Platform::SetLastError({}); // of a file beyond its bound nothing else tells
    Platform::SError error;
    try {
        if (account.config.Load(account.strConfigPath))
            return ERouted::Done;
        error = Platform::LastError();
    } catch (const Bex::CFileException& exception) {
        if (!m_numbers)
            throw;
        error = exception.Error();
    }
    if (Platform::IsBusy(error))
        return ERouted::Busy;
    return Failed(error, [&] {
        Bex::LogError(Bex::MainLog(), "couldn't load account config: %s (error=%d)", account.strConfigPath.Text(),
                      static_cast<int>(error.dwSysError));
        return ERouted::Failed;
    });
}

/// What the servers of a cluster file system cannot do now they do later: it is told once, and the mail waits.
template <class TTell>
ERouted CMailboxStore::Failed(Platform::SError error, TTell Tell)
{
    const bool bMayPass =
        m_numbers && (error.iLibError == Platform::LIB_IO || error.iLibError == Platform::LIB_READ_ONLY ||
                      error.iLibError == Platform::LIB_TIMED_OUT);
    if (bMayPass && std::exchange(m_bTold, true))
        return ERouted::Busy;
    const ERouted told = Tell();
    return bMayPass ? ERouted::Busy : told;
}

ERouted CMailboxStore::WriteMailFile(const CMail& copy, SAccount& account, CCopyGroup& group)
{
    const bool bEnvelope =
        account.config.GetFlag(AccountKeys::SAVE_ENVELOPE) || account.config.GetFlag(AccountKeys::RUN_REPLY);
    const EWriteMode mode = bEnvelope ? EWriteMode::Envelope : EWriteMode::ReturnPath;
    if (!m_numbers)
        account.dwNextUID = static_cast<uint32_t>(account.config.GetInt(AccountKeys::NEXT_UID));
    const SSaveResult saved = account.config.GetFlag(AccountKeys::MAILDIR) ? WriteInMaildir(copy, mode, account, group)
                                                                           : WriteNumbered(copy, mode, account, group);
    if (!saved)
        return Failed(saved.error,
                      [&] { return MailLog::NotSaved(copy, account.strMailFile, saved.error, NOT_WRITTEN_LINE); });
    m_bTold = false;
    return ERouted::Done;
}

uint32_t CMailboxStore::NextNumber(SAccount& account, CCopyGroup& group)
{
    if (!m_numbers)
        return account.dwNextUID++;
    group.MarkRemoved(m_numbers->DirectoryOf(account.strName)); // the number's old name goes
    return m_numbers->Take(account.strName, account.config);
}

/// A number that was taken from among several hosts is not tried again after a crash: what that left must have another
/// temporary name, which the next mail from this host finds.
SSaveResult CMailboxStore::WriteNumbered(const CMail& copy, EWriteMode mode, SAccount& account, CCopyGroup& group)
{
    const auto NextName = [&] { return Bex::CSimpleString::Formatted("%u.eml", NextNumber(account, group)); };
    if (!m_numbers)
        return group.SaveNew(copy, mode, account.strDirectory, ENaming::AtOnce, NextName, account.strMailFile);
    const SSaveOptions options{.BeforeWaiting = [&group] { group.EndBeforeWaiting(); },
                               .strTemporary = Bex::PathBelow(account.strDirectory, m_strTemporary)};
    return group.SaveBy(account.strDirectory, [&] {
        SSaveResult saved{ESaveResult::Exists};
        while (saved.result == ESaveResult::Exists) {
            account.strMailFile = Bex::PathBelow(account.strDirectory, NextName());
            saved = copy.SaveNew(account.strMailFile, mode, options);
        }
        return saved;
    });
}

/// The tagger is waited for even where others run in parallel: behind it the mail gets another name. A stop leaves the
/// mail to the next start.
SSaveResult CMailboxStore::WriteInMaildir(const CMail& copy, EWriteMode mode, SAccount& account, CCopyGroup& group)
{
    const CMaildir maildir(account.strDirectory);
    account.strMailFile = maildir.NewDirectory();
    if (!maildir.Prepare())
        return {ESaveResult::Failed, Platform::LastError()};
    if (m_numbers)
        account.dwNextUID = NextNumber(account, group);
    if (uint64_t& nNextLook = m_nextLook[account.strDirectory.Text()]; Platform::TickCount() >= nNextLook) {
        maildir.RemoveLeftovers();
        nNextLook = Platform::TickCount() + CMaildir::LEFTOVER_SECONDS * 1000;
    }
    std::function<bool(const Bex::CSimpleString&)> Tag;
    if (account.IsTaggedInMaildir()) {
        group.EndBeforeWaiting();
        Tag = [&account](const Bex::CSimpleString& strPath) {
            RunSpamTagger(account.strDirectory, strPath, false);
            return !Bex::CThread::IsCallerStopped();
        };
    }
    return group.SaveBy(maildir.NewDirectory(),
                        [&] { return maildir.SaveNew(copy, mode, Tag, account.dwNextUID, account.strMailFile); });
}

/// The mail is stored: when the number cannot be recorded, the next delivery moves past the names already taken.
void CMailboxStore::RecordNextUID(SAccount& account) const
{
    if (m_numbers)
        return; // with the number
    try {
        account.config.SetNextUID(account.dwNextUID);
        account.config.Save();
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
    }
}

bool CMailboxStore::WaitsForPrograms(const SAccount& account)
{
    return !ScriptsRunInParallel() &&
           (account.config.GetFlag(AccountKeys::RUN_ANTI_SPAM) || account.config.GetFlag(AccountKeys::RUN_REPLY) ||
            HasPostScript(account.strDirectory));
}

/// The first program is started also when a stop has come since the copy was stored; after that nothing more is. Where
/// this leaves something out, the recipient stays open: the next start repeats the copy, with all its programs.
ERouted CMailboxStore::RunPrograms(SAccount& account, const Bex::CSimpleString& strRecipientFileName,
                                   CCopyGroup& group) const
{
    const bool bParallel = ScriptsRunInParallel();
    const bool bWaits = WaitsForPrograms(account);
    if (bWaits)
        group.EndBeforeWaiting();
    bool bBegun = false;
    const auto IsCut = [&] { return std::exchange(bBegun, true) && bWaits && Bex::CThread::IsCallerStopped(); };
    if (account.config.GetFlag(AccountKeys::RUN_ANTI_SPAM) && !account.IsTaggedInMaildir() && !IsCut())
        RunSpamTagger(account.strDirectory, account.strMailFile, bParallel);
    const Bex::CSimpleString strTemplate = account.config.GetString(AccountKeys::RUN_REPLY_TEMPLATE);
    if (account.config.GetFlag(AccountKeys::RUN_REPLY) && !strTemplate.IsEmpty()) {
        if (IsCut())
            return ERouted::Busy;
        const Bex::CSimpleString strOutput =
            Bex::JoinPath(m_strQueueDirectory, Bex::CSimpleString::Formatted("r_%s", strRecipientFileName.Text()));
        RunResponder(account.strDirectory, account.strMailFile, strTemplate, strOutput, bParallel);
    }
    if (HasPostScript(account.strDirectory) && IsCut())
        return ERouted::Busy;
    RunPostScript(account.strDirectory, account.strMailFile, bParallel);
    return ERouted::Done;
}
