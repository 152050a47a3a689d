#pragma once

#include "Bex/CConfigKey.h"
#include "Bex/CStorableStringHash.h"

#include <cstdint>

namespace Bex {

/// The environment variable that names the directory of the configuration.
inline constexpr char CONFIG_DIRECTORY_VARIABLE[] = "MAILCONFIGDIR";

/// A key/value file with typed getters. A default applies only when the key is absent: an empty value is empty.
/// Any thread.
class CConfigFile : public CStorableStringHash
{
public:
    explicit CConfigFile(uint64_t nMostBytes = MOST_CONFIG_BYTES) : CStorableStringHash(nMostBytes) {}
    ~CConfigFile() override = default;

    CSimpleString GetString(const CTextKey& key) const;
    CSimpleString GetPath(const CPathKey& key) const; ///< in this system's form of paths
    int GetInt(const CNumberKey& key) const;
    bool GetFlag(const CFlagKey& key) const;
    bool IsSet(const CConfigKey& key) const; ///< the file has the key, or the one that stands in for it

    CSimpleString GetString(const char* pszKey, const char* pszDefault = nullptr) const; ///< null: empty
    int GetInt(const char* pszKey, int iDefault) const; ///< as atoi reads it, saturating; an empty value is 0

    static constexpr char LOCAL_PART_DELIMITER[] = "LocalPart.Delimiter";
    static constexpr char DEFAULT_DELIMITER[] = "+";
    char GetLocalPartDelimiter() const;
    static constexpr char NEXT_UID[] = "NextUID";
    void SetNextUID(uint32_t dwNextUID);

private:
    bool Find(const CConfigKey& key, CSimpleString& strValue) const;
    int Number(const CConfigKey& key) const;
};

} // namespace Bex
