#include "Bex/CConfigFile.h"

#include "Platform/FileSystem.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace Bex {

namespace {

int ToInt(const char* pszValue)
{
    const long lValue = std::strtol(pszValue, nullptr, 10); // saturates; 0 without digits
    return static_cast<int>(std::clamp<long>(lValue, INT_MIN, INT_MAX));
}

} // namespace

bool CConfigFile::Find(const CConfigKey& key, CSimpleString& strValue) const
{
    return Lookup(key.Name(), strValue) || (key.OtherName() != nullptr && Lookup(key.OtherName(), strValue));
}

int CConfigFile::Number(const CConfigKey& key) const
{
    CSimpleString strValue;
    return ToInt(Find(key, strValue) ? strValue.Text() : key.Default());
}

CSimpleString CConfigFile::GetString(const CTextKey& key) const
{
    CSimpleString strValue;
    return Find(key, strValue) ? strValue : CSimpleString(key.Default());
}

CSimpleString CConfigFile::GetPath(const CPathKey& key) const
{
    CSimpleString strValue;
    return CSimpleString(Platform::NativePath(Find(key, strValue) ? strValue.View() : key.Default()));
}

int CConfigFile::GetInt(const CNumberKey& key) const { return Number(key); }

bool CConfigFile::GetFlag(const CFlagKey& key) const { return Number(key) != 0; }

bool CConfigFile::IsSet(const CConfigKey& key) const
{
    CSimpleString strValue;
    return Find(key, strValue);
}

CSimpleString CConfigFile::GetString(const char* pszKey, const char* pszDefault) const
{
    CSimpleString strValue;
    return Lookup(pszKey, strValue) ? strValue : CSimpleString(pszDefault);
}

int CConfigFile::GetInt(const char* pszKey, int iDefault) const
{
    CSimpleString strValue;
    return Lookup(pszKey, strValue) ? ToInt(strValue.Text()) : iDefault;
}

char CConfigFile::GetLocalPartDelimiter() const
{
    const CSimpleString strValue = GetString(LOCAL_PART_DELIMITER);
    return strValue.IsEmpty() ? DEFAULT_DELIMITER[0] : strValue.At(0);
}

void CConfigFile::SetNextUID(uint32_t dwNextUID) { Set(NEXT_UID, CSimpleString::Formatted("%u", dwNextUID)); }

} // namespace Bex
