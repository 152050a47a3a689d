#pragma once

#include "Bex/CStorableStringHash.h"

#include <cstdint>

namespace Bex {

/// A key/value file with typed getters. A default applies only when the key is absent.
class CConfigFile : public CStorableStringHash
{
public:
    CConfigFile() : CStorableStringHash(MOST_CONFIG_BYTES) {}
    ~CConfigFile() override = default;

    CSimpleString GetString(const char* pszKey, const char* pszDefault = nullptr) const; ///< null: empty
    int GetInt(const char* pszKey, int iDefault) const; ///< as atoi reads it, saturating; an empty value is 0
    char GetLocalPartDelimiter() const;
    void SetNextUID(uint32_t dwNextUID);
};

} // namespace Bex
