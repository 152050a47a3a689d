#pragma once

#include "Bex/CConfigFile.h"

#include <span>
#include <vector>

/// Reads a settings file to tell which of its keys nothing reads: misspelled ones, mostly. One thread.
///
/// As a service the daemon does not ask: other programs keep keys of their own in the same file.
class CConfigCheck : public Bex::CConfigFile
{
public:
    struct SUnknownKey
    {
        uint32_t nLine; ///< from 1
        Bex::CSimpleString strKey;
    };

    explicit CConfigCheck(std::span<const Bex::SConfigKey> table) : m_table(table) {}

    const std::vector<SUnknownKey>& UnknownKeys() const { return m_unknown; } ///< after Load, in file order

protected:
    bool OnLoadBegin() override;
    bool OnLoadEntry(Bex::CSimpleString& strKey, Bex::CSimpleString& strValue) override;

private:
    std::span<const Bex::SConfigKey> m_table;
    std::vector<SUnknownKey> m_unknown;
};
