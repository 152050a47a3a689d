#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Common/SmartHostEntry.h"
#include "Control/CControlError.h"
#include "Control/CPairLines.h"
#include "Control/CheckSteps.h"
#include "Control/LoadConfiguration.h"
#include "Platform/FileSystem.h"
#include "Tobix/TableFiles.h"

#include <algorithm>

namespace {

constexpr std::string_view TLS_LETTERS = "sti";
constexpr unsigned long HIGHEST_PORT = 65'535;
constexpr size_t MOST_DIGITS = 9; ///< of a port that is worth reading

/// Tells what of one entry means something else than it seems.
class CEntryCheck
{
public:
    CEntryCheck(std::string_view text, CFindings::SPlace place, CFindings& findings)
        : m_text(text), m_entry(ParseSmartHostEntry(text)), m_place(std::move(place)), m_findings(findings)
    {}

    void Run() const
    {
        CheckBlanks();
        CheckHost();
        CheckPort();
        CheckProtection();
    }

private:
    /// A password belongs into no answer.
    std::string Name() const { return Quoted(m_entry.strHost) + ": "; }
    void Error(const std::string& strText) const { m_findings.Error(m_place, Name() + strText); }
    void Warn(const std::string& strText) const { m_findings.Warn(m_place, Name() + strText); }

    void CheckBlanks() const
    {
        if (Bex::TrimmedView(m_text).size() != m_text.size())
            Error("a blank belongs to the name; none may stand around a comma");
    }
    void CheckHost() const
    {
        const std::string_view host = Bex::TrimmedView(m_entry.strHost);
        const bool bBracketed = m_text.find('[') != std::string_view::npos;
        if (host.empty())
            Error("there is no name of a host");
        else if (!bBracketed && m_entry.strPort.Contains(':'))
            Error("an IPv6 address stands in brackets");
        else if (host.find_first_of(" \t;/\\<>\"") != std::string_view::npos)
            Error("this is no name of a host; hosts are parted by commas");
    }
    void CheckPort() const
    {
        if (m_entry.strPort.IsEmpty() || m_entry.strPort.Contains(':'))
            return;
        const std::string strPort = m_entry.strPort.Text();
        const size_t nDigits = std::min(strPort.find_first_not_of("0123456789"), strPort.size());
        const std::string strRest = strPort.substr(nDigits);
        const bool bPort = nDigits > 0 && nDigits <= MOST_DIGITS && std::stoul(strPort) - 1 < HIGHEST_PORT;
        if (!bPort)
            Error("the port " + Quoted(strPort.substr(0, nDigits)) + " is none of 1 to 65535");
        if (strRest.size() == 1 && TLS_LETTERS.find(Bex::LowerAscii(strRest[0])) != std::string_view::npos) {
            if (strRest[0] != Bex::LowerAscii(strRest[0]))
                Error("the capital " + Quoted(strRest) + " behind the port means nothing; only small letters count");
        } else if (!strRest.empty()) {
            Error(Quoted(strRest) + " behind the port is none of \"s\", \"t\" and \"i\"");
        }
    }
    void CheckProtection() const
    {
        const bool bUser = !m_entry.strUser.IsEmpty();
        const bool bPassword = !m_entry.strPassword.IsEmpty();
        if (bUser != bPassword)
            Warn("nobody logs in without both a user and a password");
        if (!bUser && !bPassword && m_entry.mode != ETLSMode::None && m_entry.mode != ETLSMode::Opportunistic)
            Warn("the letter behind the port counts only with user and password: mail goes by STARTTLS where it is "
                 "offered, else in clear");
        if (bPassword && m_entry.mode == ETLSMode::None)
            Warn("the password goes in clear");
        if (bPassword && m_entry.mode == ETLSMode::Opportunistic)
            Warn("after a failure of TLS the password goes in clear; \"t\" or \"s\" behind the port forbids that");
    }

    std::string_view m_text;
    SSmartHostEntry m_entry;
    CFindings::SPlace m_place;
    CFindings& m_findings;
};

void CheckKey(const CPairLines::SPair& pair, const CFindings::SPlace& place, CFindings& findings)
{
    const std::string_view key = pair.strKey;
    const std::string_view pattern = key.substr(key.starts_with('<') || key.starts_with('>') ? 1 : 0);
    const char* pszWhy = nullptr;
    if (pattern.find('@') != std::string_view::npos)
        pszWhy = "it is compared with the domain alone";
    else if (pattern.find_first_of(" \t,;") != std::string_view::npos)
        pszWhy = "no domain has a blank or a comma in it";
    else if (pattern.starts_with('.'))
        pszWhy = "sub-domains are written \"*.\" and the domain";
    if (pszWhy != nullptr)
        findings.Error(place, Quoted(key) + " matches no domain: " + pszWhy);
    else if (pair.strKey.Lowered() != pair.strKey)
        findings.Warn(place, Quoted(key) + " matches only addresses that are written with these capitals");
}

} // namespace

void CheckSmartHosts(CFindings& findings)
{
    const Bex::CSimpleString strFile = TableFiles::SmartHosts(ConfigDirectory());
    if (Platform::KindOf(strFile.Text()) == Platform::EPathKind::Missing)
        return;
    CPairLines table(findings);
    const Platform::SError error = LoadError(table, strFile);
    if (error.dwSysError != 0) {
        findings.Error({strFile.Text()}, "the table cannot be read: " + ErrorText(error));
        return;
    }
    LoadError(SmartHosts(), strFile);
    for (const CPairLines::SPair& pair : table.Pairs()) {
        const CFindings::SPlace place = table.PlaceOf(pair);
        CheckKey(pair, place, findings);
        Bex::CList<Bex::CSimpleString> entries(false);
        Bex::Tokenize(pair.strValue, ",", entries, false);
        if (entries.IsEmpty())
            findings.Warn(place, Quoted(pair.strKey) + " has no host: its mail goes to the exchangers of the domain");
        for (const Bex::CSimpleString& strEntry : entries)
            CEntryCheck(strEntry, place, findings).Run();
    }
}
