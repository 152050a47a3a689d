#pragma once

#include "Bex/CConfigFile.h"

#include <map>
#include <span>
#include <string>
#include <vector>

/// Reads a settings file to tell what in it has no effect, or another one than it seems: misspelled keys, mostly. One
/// thread.
///
/// As a service the daemon does not ask: other programs keep keys of their own in the same file.
class CConfigCheck : public Bex::CConfigFile
{
public:
    enum class EProblem {
        UnknownKey,
        SecondKey, ///< the first one counts
        NoPair,
        NoNumber ///< the value of a number or a flag, of which only the digits that it begins with count
    };
    struct SProblem
    {
        EProblem problem;
        uint32_t nLine;              ///< from 1
        Bex::CSimpleString strKey;   ///< or the line's text
        Bex::CSimpleString strValue; ///< of NoNumber
    };

    explicit CConfigCheck(std::span<const Bex::SConfigKey> table) : m_table(table) {}

    const std::vector<SProblem>& Problems() const { return m_problems; } ///< after Load, in file order
    uint32_t LineOf(std::string_view key) const;                         ///< 0: the file lacks it

protected:
    bool OnLoadBegin() override;
    bool OnLoadEntry(Bex::CSimpleString& strKey, Bex::CSimpleString& strValue) override;
    void OnPassedOver(EPassedOver reason, std::string_view text) override;

private:
    std::span<const Bex::SConfigKey> m_table;
    std::vector<SProblem> m_problems;
    std::map<std::string, uint32_t, std::less<>> m_lines; ///< by key
};
