#include "Common/CConfigCheck.h"

#include <algorithm>

bool CConfigCheck::OnLoadBegin()
{
    m_unknown.clear();
    return true;
}

bool CConfigCheck::OnLoadEntry(Bex::CSimpleString& strKey, Bex::CSimpleString&)
{
    if (std::ranges::none_of(m_table, [&](const Bex::SConfigKey& key) { return strKey == key.pszName; }))
        m_unknown.push_back({LineNumber(), strKey});
    return true;
}
