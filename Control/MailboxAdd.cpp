#include "Control/MailboxAdd.h"

#include "Bex/CFileException.h"
#include "Bex/CReplacingFile.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Control/CDaemon.h"
#include "Control/CTerminal.h"
#include "Control/DomainsFile.h"
#include "Control/LoadTables.h"
#include "Platform/CActingUser.h"
#include "Platform/CFlushGroup.h"
#include "Platform/FileSystem.h"
#include "Platform/Process.h"
#include "Tobix/SRecipientRoute.h"

#include <algorithm>

namespace {

constexpr size_t LONGEST_NAME = 64;    // RFC 5321 4.5.3.1.1
constexpr size_t LONGEST_DOMAIN = 253; // RFC 1035 2.3.4
constexpr size_t LONGEST_LABEL = 63;
constexpr char ACCOUNT[] = "# Settings of this account; each delivery reads them anew: tobix.cfg(5)\nNextUID: 1\n";

bool IsLetterOrDigit(char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); }

bool IsLabel(std::string_view label)
{
    return !label.empty() && label.size() <= LONGEST_LABEL && !label.starts_with('-') && !label.ends_with('-') &&
           std::ranges::all_of(label, [](char c) { return IsLetterOrDigit(c) || c == '-'; });
}

[[noreturn]] void Fail(const std::string& strWhat)
{
    throw CControlError(EExit::Wrong, strWhat + ": " + ErrorText(Platform::LastError()));
}

/// A directory with an account file, which becomes the mailbox when it is complete. What is left of it goes.
class CNewMailbox
{
public:
    CNewMailbox(const Bex::CSimpleString& strSpool, const Bex::CSimpleString& strUser)
        : m_strFinal(Bex::PathBelow(strSpool, strUser)),
          m_strTemporary(Bex::CSimpleString::Formatted("%s/.%s.%u.new", strSpool.Text(), strUser.Text(),
                                                       Platform::CurrentProcessId())),
          m_strAccount(Bex::PathBelow(m_strTemporary, "config"))
    {}
    ~CNewMailbox()
    {
        if (!m_bMade)
            return;
        Platform::RemoveFile(m_strAccount.Text());
        Platform::RemoveDirectory(m_strTemporary.Text());
    }
    CNewMailbox(const CNewMailbox&) = delete;
    CNewMailbox& operator=(const CNewMailbox&) = delete;

    void Make()
    {
        if (!Platform::CreateOneDirectory(m_strTemporary.Text()))
            Fail(std::string("cannot make ") + m_strTemporary.Text());
        m_bMade = true;
        Bex::CReplacingFile account(m_strAccount);
        account.WriteString(ACCOUNT);
        account.CommitNew();
        if (!Platform::RenameNoReplace(m_strTemporary.Text(), m_strFinal.Text()))
            Fail(std::string("cannot make ") + m_strFinal.Text());
        m_bMade = false;
    }

private:
    Bex::CSimpleString m_strFinal;
    Bex::CSimpleString m_strTemporary; ///< whose dot keeps it from being a user
    Bex::CSimpleString m_strAccount;
    bool m_bMade = false;
};

/// As root by the owner of the directory, so that nothing is given away afterwards.
void MakeMailbox(const Bex::CSimpleString& strUser)
{
    const Bex::CSimpleString strSpool = Users().SpoolRoot();
    Platform::CActingUser acting;
    if (Platform::IsAdministrator() && !acting.BecomeOwnerOf(strSpool.Text()))
        Fail(std::string("cannot act as the owner of ") + strSpool.Text());
    Platform::CFlushGroup volumes;
    volumes.Add(strSpool.Text());
    try {
        CNewMailbox(strSpool, strUser).Make();
    } catch (const Bex::CFileException& exception) {
        throw CControlError(EExit::Wrong,
                            std::string("cannot write into ") + strSpool.Text() + ": " + ErrorText(exception.Error()));
    }
    volumes.MarkWritten(strSpool.Text());
    if (!volumes.Flush())
        Fail(std::string("cannot flush ") + strSpool.Text());
}

std::string AskDaemon()
{
    try {
        const bool bKnows = CDaemon::OfConfiguration().AskIfRunning({{"command", "rebuild-users"}}).has_value();
        return bKnows ? "the daemon knows it" : "no daemon runs; the next one will know it";
    } catch (const CControlError& error) {
        throw CControlError(error.Exit(),
                            std::string("the mailbox is made, but the daemon does not know it: ") + error.what());
    }
}

/// What the daemon knows afterwards.
std::string TellDaemon(bool bDomainAdded)
{
    if (!Config().GetPath(Keys::CONTROL_SOCKET).IsEmpty())
        return AskDaemon();
    try {
        if (!bDomainAdded)
            AddLocalDomain({}); // which has it read all of this again
        return "a running daemon takes it up within a second";
    } catch (const CControlError&) { // the mailbox is there
        return "a running daemon takes it up when its domains or aliases change, or with a restart";
    }
}

/// The user and the domain that are asked for, in lower case; the latter may be empty.
struct SNewAddress
{
    explicit SNewAddress(const std::string& strAddress)
        : strUser(Bex::CSimpleString(strAddress).LocalPart().Lowered()),
          strDomain(Bex::CSimpleString(strAddress).Domain().Lowered())
    {
        const bool bDomain = strAddress.find('@') != std::string::npos;
        const std::string strFault = NameFault(strUser, Config().GetLocalPartDelimiter());
        const std::string strDomainFault = bDomain ? DomainFault(strDomain) : "";
        if (!strFault.empty() || !strDomainFault.empty())
            throw CControlError(EExit::Wrong, strAddress + ": " + (strFault.empty() ? strDomainFault : strFault));
    }
    Bex::CSimpleString Text() const
    {
        return strDomain.IsEmpty() ? strUser : Bex::CSimpleString::Formatted("%s@%s", strUser.Text(), strDomain.Text());
    }

    Bex::CSimpleString strUser;
    Bex::CSimpleString strDomain;
};

void RequireNew(const SNewAddress& address)
{
    if (!Users().IsUser(address.strUser))
        return;
    const bool bOtherDomain = !address.strDomain.IsEmpty() && !IsLocalAddress(address.Text());
    throw CControlError(EExit::Wrong,
                        std::string("the user ") + address.strUser.Text() + " exists already, in " +
                            Users().UserDirectory(address.strUser).Text() +
                            (bOtherDomain ? std::string("; to have it get mail for ") + address.strDomain.Text() +
                                                " too, write that domain into the table of domains"
                                          : std::string()));
}

/// Empty, or what keeps mail from reaching the new mailbox.
std::string Diversion(const SNewAddress& address, const SOptions& options)
{
    LoadTables(options);
    const SRecipientRoute route = SRecipientRoute::Of(address.Text());
    if (route.way == SRecipientRoute::EWay::Mailbox && route.strTarget == address.strUser)
        return {};
    return std::string("an alias leads mail for ") + address.Text().Text() + " to " +
           (route.strTarget.IsEmpty() ? "nowhere" : route.strTarget.Text());
}

} // namespace

std::string NameFault(std::string_view name, char cDelimiter)
{
    if (name.empty() || name.size() > LONGEST_NAME)
        return "the name of a user has 1 to 64 characters";
    if (name.find(cDelimiter) != std::string_view::npos)
        return std::string("what follows \"") + cDelimiter + "\" is cut off from an address: no user can have it";
    const bool bGood =
        std::ranges::all_of(name, [](char c) { return IsLetterOrDigit(c) || c == '.' || c == '_' || c == '-'; });
    if (!bGood || name.starts_with('.') || name.starts_with('-') || name.ends_with('.') ||
        name.find("..") != std::string_view::npos)
        return "a user is named by letters and digits, with \".\", \"_\" and \"-\" within the name";
    return {};
}

std::string DomainFault(std::string_view domain)
{
    bool bGood = domain.size() <= LONGEST_DOMAIN;
    for (size_t nStart = 0; bGood && nStart <= domain.size();) {
        const size_t nEnd = std::min(domain.find('.', nStart), domain.size());
        bGood = IsLabel(domain.substr(nStart, nEnd - nStart));
        nStart = nEnd + 1;
    }
    return bGood ? "" : "that is no domain";
}

int AddMailbox(const SOptions& options, const std::string& strAddress)
{
    LoadTables(options);
    const SNewAddress address(strAddress);
    RequireNew(address);
    const bool bAddDomain = !address.strDomain.IsEmpty() && !IsLocalAddress(address.Text());
    if (bAddDomain && !Platform::MayFill(ConfigDirectory().Text()))
        Fail(std::string("cannot make ") + address.strDomain.Text() + " a local domain in " + ConfigDirectory().Text());
    MakeMailbox(address.strUser);
    if (bAddDomain)
        AddLocalDomain(address.strDomain);
    const std::string strKnown = TellDaemon(bAddDomain);
    const std::string strDiversion = Diversion(address, options);
    const Bex::CSimpleString strDirectory = Users().UserDirectory(address.strUser);
    const CTerminal terminal(options);
    if (terminal.IsJson()) {
        terminal.Json({{"user", address.strUser.Text()},
                       {"directory", strDirectory.Text()},
                       {"domain_added", bAddDomain},
                       {"daemon", strKnown}});
    } else {
        terminal.Line(std::string("made the mailbox ") + strDirectory.Text(), EStyle::Good);
        if (bAddDomain)
            terminal.Line(std::string(address.strDomain.Text()) + " is a local domain now");
        terminal.Line(strKnown);
    }
    if (!strDiversion.empty())
        CTerminal::Complain(strDiversion);
    return static_cast<int>(strDiversion.empty() ? EExit::Done : EExit::Wrong);
}
