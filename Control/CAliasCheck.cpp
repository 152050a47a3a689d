#include "Control/CAliasCheck.h"

#include "Common/Globals.h"
#include "Control/AliasSteps.h"
#include "Control/CPairLines.h"
#include "Control/LoadConfiguration.h"

namespace {

std::string TextOf(EAliasFault fault, const Bex::CSimpleString& strKey, const Bex::CSimpleString& strValue)
{
    switch (fault) {
    case EAliasFault::NotLocal:
        return "its domain is not local: it stands in no line of domains";
    case EAliasFault::NoLocalPart:
        return "nothing stands before the \"@\"; a catch-all is written \"*" + std::string(strKey.Text()) + "\"";
    case EAliasFault::Itself:
        return "it leads to itself";
    default:
        break;
    }
    if (strValue.IsEmpty())
        return "it has no target";
    if (Users().IsUser(strValue.Lowered()))
        return "users are written in lower case: " + Quoted(strValue.Lowered());
    if (strValue.View().find_first_of(" ,;") != std::string_view::npos)
        return Quoted(strValue) + " is no user; an alias has one target";
    return Quoted(strValue) + " is no user, and leads to none by an earlier line";
}

} // namespace

Platform::SError CAliasCheck::Run(const Bex::CSimpleString& strFile, CAliases& plain)
{
    m_pPlain = &plain;
    LoadError(plain, strFile);
    const Platform::SError error = LoadError(*this, strFile);
    if (error.dwSysError == 0)
        PreresolveAliases();
    return error;
}

bool CAliasCheck::OnLoadEntry(Bex::CSimpleString& strKey, Bex::CSimpleString& strValue)
{
    const bool bGood = CAliases::OnLoadEntry(strKey, strValue);
    if (bGood && !m_lines.try_emplace(strKey.Text(), LineNumber()).second) {
        uint32_t& nEarlier = m_lines[strKey.Text()];
        m_findings.Warn({FileName().Text(), nEarlier}, Quoted(strKey) + " stands in line " +
                                                           std::to_string(LineNumber()) +
                                                           " with other capitals, which counts instead");
        nEarlier = LineNumber();
    }
    return bGood;
}

void CAliasCheck::OnPassedOver(EPassedOver reason, std::string_view text)
{
    m_findings.Warn(Here(), CPairLines::PassedOverText(reason, text));
}

void CAliasCheck::OnFaulty(EAliasFault fault, const Bex::CSimpleString& strKey, const Bex::CSimpleString& strValue)
{
    m_findings.Error(Here(), Quoted(strKey) + " is dropped: " + TextOf(fault, strKey, strValue));
}

void CAliasCheck::OnRemoved(const Bex::CSimpleString& strKey)
{
    const auto line = m_lines.find(strKey.Text());
    const SAliasWay way = AliasWay(*m_pPlain, strKey);
    const char* const pszWhy = way.bCircle || !way.End().IsEmpty() ? "it goes round in a circle" : "it leads nowhere";
    m_findings.Error({FileName().Text(), line != m_lines.end() ? line->second : 0},
                     Quoted(strKey) + " is dropped: " + pszWhy + ", " + way.Text(strKey));
}
