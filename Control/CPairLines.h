#pragma once

#include "Bex/CConfigFile.h"
#include "Control/CFindings.h"

#include <cstdint>
#include <vector>

/// The pairs of a key/value table with their lines, and what of it has no effect. One thread.
class CPairLines : public Bex::CConfigFile
{
public:
    struct SPair
    {
        uint32_t nLine; ///< from 1
        Bex::CSimpleString strKey;
        Bex::CSimpleString strValue;
    };

    explicit CPairLines(CFindings& findings) : CConfigFile(Bex::MOST_TABLE_BYTES), m_findings(findings) {}

    const std::vector<SPair>& Pairs() const { return m_pairs; } ///< after Load, in file order
    CFindings::SPlace PlaceOf(const SPair& pair) const { return {FileName().Text(), pair.nLine}; }

protected:
    bool OnLoadEntry(Bex::CSimpleString& strKey, Bex::CSimpleString& strValue) override
    {
        m_pairs.push_back({LineNumber(), strKey, strValue});
        return true;
    }
    void OnPassedOver(EPassedOver reason, std::string_view text) override
    {
        m_findings.Warn({FileName().Text(), LineNumber()}, PassedOverText(reason, text));
    }

public:
    static std::string PassedOverText(EPassedOver reason, std::string_view text)
    {
        return Quoted(text) + (reason == EPassedOver::SecondKey ? " stands in an earlier line, which counts"
                                                                : " has no effect: a line is \"key: value\"");
    }

private:
    CFindings& m_findings;
    std::vector<SPair> m_pairs;
};
