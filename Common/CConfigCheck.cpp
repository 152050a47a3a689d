#include "Common/CConfigCheck.h"

#include <algorithm>

namespace {

bool IsWholeNumber(std::string_view value)
{
    if (value.starts_with('-') || value.starts_with('+'))
        value.remove_prefix(1);
    return !value.empty() && std::ranges::all_of(value, [](char c) { return c >= '0' && c <= '9'; });
}

bool IsNumber(Bex::EKeyKind kind) { return kind == Bex::EKeyKind::Number || kind == Bex::EKeyKind::Flag; }

} // namespace

bool CConfigCheck::OnLoadBegin()
{
    m_problems.clear();
    m_lines.clear();
    return true;
}

bool CConfigCheck::OnLoadEntry(Bex::CSimpleString& strKey, Bex::CSimpleString& strValue)
{
    m_lines.emplace(strKey.View(), LineNumber());
    const auto key =
        std::ranges::find_if(m_table, [&](const Bex::SConfigKey& known) { return strKey == known.pszName; });
    if (key == m_table.end())
        m_problems.push_back({EProblem::UnknownKey, LineNumber(), strKey, {}});
    else if (IsNumber(key->kind) && !IsWholeNumber(strValue))
        m_problems.push_back({EProblem::NoNumber, LineNumber(), strKey, strValue});
    return true;
}

void CConfigCheck::OnPassedOver(EPassedOver reason, std::string_view text)
{
    const EProblem problem = reason == EPassedOver::SecondKey ? EProblem::SecondKey : EProblem::NoPair;
    m_problems.push_back({problem, LineNumber(), Bex::CSimpleString(text), {}});
}

uint32_t CConfigCheck::LineOf(std::string_view key) const
{
    const auto line = m_lines.find(key);
    return line != m_lines.end() ? line->second : 0;
}
