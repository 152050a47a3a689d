#include "Bex/CConfigFile.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace Bex {

CSimpleString CConfigFile::GetString(const char* pszKey, const char* pszDefault) const
{
    CSimpleString strValue;
    return Lookup(pszKey, strValue) ? strValue : CSimpleString(pszDefault);
}

int CConfigFile::GetInt(const char* pszKey, int iDefault) const
{
    CSimpleString strValue;
    if (!Lookup(pszKey, strValue))
        return iDefault;
    const long lValue = std::strtol(strValue.Text(), nullptr, 10); // saturates; 0 without digits
    return static_cast<int>(std::clamp<long>(lValue, INT_MIN, INT_MAX));
}

char CConfigFile::GetLocalPartDelimiter() const
{
    const CSimpleString strValue = GetString("LocalPart.Delimiter");
    return strValue.IsEmpty() ? '+' : strValue.At(0);
}

void CConfigFile::SetNextUID(uint32_t dwNextUID) { Set("NextUID", CSimpleString::Formatted("%u", dwNextUID)); }

} // namespace Bex
