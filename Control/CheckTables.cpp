#include "Bex/CStorableStringList.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Common/IsValidAddress.h"
#include "Common/NormalizeAddress.h"
#include "Control/CAliasCheck.h"
#include "Control/CControlError.h"
#include "Control/CPairLines.h"
#include "Control/CheckSteps.h"
#include "Control/LoadConfiguration.h"
#include "Platform/FileSystem.h"
#include "Tobix/TableFiles.h"

#include <algorithm>
#include <functional>

namespace {

enum class ENeeded { Always, WhenThere };

/// False when the table cannot be read; that is a finding, unless it need not be there and is not.
template <class TTable>
bool Read(TTable& table, const Bex::CSimpleString& strFile, ENeeded needed, CFindings& findings)
{
    if (needed == ENeeded::WhenThere && Platform::KindOf(strFile.Text()) == Platform::EPathKind::Missing)
        return false;
    const Platform::SError error = LoadError(table, strFile);
    if (error.dwSysError != 0)
        findings.Error({strFile.Text()}, "the table cannot be read: " + ErrorText(error));
    return error.dwSysError == 0;
}

/// What is wrong with an entry; empty: nothing.
using FJudge = std::function<std::string(const Bex::CSimpleString&)>;

/// Judges each entry of a list.
class CListCheck : public Bex::CStorableStringList
{
public:
    CListCheck(bool bTrim, FJudge Judge, CFindings& findings)
        : CStorableStringList(bTrim), m_Judge(std::move(Judge)), m_findings(findings)
    {}

protected:
    bool OnLoadLine(Bex::CSimpleString& strEntry) override
    {
        const std::string strText = m_Judge(strEntry);
        if (!strText.empty())
            m_findings.Warn({FileName().Text(), LineNumber()}, Quoted(strEntry) + " " + strText);
        return true;
    }

private:
    FJudge m_Judge;
    CFindings& m_findings;
};

bool HasCapitals(const Bex::CSimpleString& strText) { return strText.Lowered() != strText; }

std::string JudgeDomain(const Bex::CSimpleString& strEntry)
{
    if (strEntry.View().find_first_of("*?") != std::string_view::npos || strEntry.View().starts_with('.'))
        return "matches no domain: each sub-domain has a line of its own";
    return strEntry.Contains('@') || !IsValidAddress(strEntry) ? "is no domain" : "";
}

std::string JudgeBackupDomain(const Bex::CSimpleString& strEntry)
{
    return HasCapitals(strEntry) ? "matches no domain: they are written in lower case" : JudgeDomain(strEntry);
}

std::string JudgeIntercepted(const Bex::CSimpleString& strEntry)
{
    return HasCapitals(strEntry) ? "matches no address: they are written in lower case" : "";
}

std::string JudgePhrase(const Bex::CSimpleString& strEntry)
{
    if (Bex::TrimmedView(strEntry).empty())
        return "is blank: it filters nearly all mail";
    return Bex::TrimmedView(strEntry).size() != strEntry.Length() ? "has blanks at an end, which count" : "";
}

void CheckList(const Bex::CSimpleString& strFile, bool bTrim, const FJudge& Judge, CFindings& findings)
{
    CListCheck list(bTrim, Judge, findings);
    LoadError(list, strFile); // which tells nothing new
}

} // namespace

void CheckDomains(CFindings& findings)
{
    const Bex::CSimpleString strDomains = TableFiles::Domains(ConfigDirectory());
    if (Read(LocalDomains(), strDomains, ENeeded::Always, findings))
        CheckList(strDomains, true, JudgeDomain, findings);
    const Bex::CSimpleString strBackups = TableFiles::BackupDomains(ConfigDirectory());
    if (Read(BackupDomains(), strBackups, ENeeded::WhenThere, findings))
        CheckList(strBackups, true, JudgeBackupDomain, findings);
}

void CheckAliases(CFindings& findings)
{
    const Bex::CSimpleString strFile = TableFiles::Aliases();
    CAliases plain;
    CAliasCheck aliases(findings);
    const Platform::SError error = aliases.Run(strFile, plain);
    if (error.dwSysError != 0)
        findings.Error({strFile.Text()}, "the table cannot be read: " + ErrorText(error));
    else
        Aliases().TakeOver(aliases);
}

void CheckLists(CFindings& findings)
{
    const Bex::CSimpleString strFilters = TableFiles::Filters(ConfigDirectory());
    if (Read(Filters(), strFilters, ENeeded::WhenThere, findings))
        CheckList(strFilters, false, JudgePhrase, findings);
    const Bex::CSimpleString strIntercepted = TableFiles::InterceptAddresses();
    CListCheck intercepted(true, JudgeIntercepted, findings);
    Read(intercepted, strIntercepted, ENeeded::WhenThere, findings);
    const Bex::CSimpleString strMask = TableFiles::Masquerading();
    CPairLines masks(findings);
    if (strMask.IsEmpty() || !Read(masks, strMask, ENeeded::Always, findings))
        return;
    for (const CPairLines::SPair& pair : masks.Pairs()) {
        if (NormalizeAddress(pair.strKey) != pair.strKey)
            findings.Warn(masks.PlaceOf(pair), Quoted(pair.strKey) + " matches no sender; " +
                                                   Quoted(NormalizeAddress(pair.strKey)) + " would");
        if (!IsValidAddress(pair.strValue))
            findings.Error(masks.PlaceOf(pair), Quoted(pair.strValue) + " is no address to send from");
    }
}
