#pragma once

#include "Common/CAliases.h"
#include "Control/CFindings.h"
#include "Platform/Errors.h"

#include <cstdint>
#include <map>
#include <string>

/// An alias table that tells each line that has no effect, and why. Loaded and pre-resolved like the daemon's. One
/// thread.
class CAliasCheck : public CAliases
{
public:
    explicit CAliasCheck(CFindings& findings) : m_findings(findings) {}

    /// Loads and pre-resolves it; plain is the same table as it stands in the file.
    Platform::SError Run(const Bex::CSimpleString& strFile, CAliases& plain);

protected:
    bool OnLoadEntry(Bex::CSimpleString& strKey, Bex::CSimpleString& strValue) override;
    void OnPassedOver(EPassedOver reason, std::string_view text) override;
    void OnFaulty(EAliasFault fault, const Bex::CSimpleString& strKey, const Bex::CSimpleString& strValue) override;
    void OnRemoved(const Bex::CSimpleString& strKey) override;

private:
    CFindings::SPlace Here() const { return {FileName().Text(), LineNumber()}; }

    CFindings& m_findings;
    CAliases* m_pPlain = nullptr;
    std::map<std::string, uint32_t> m_lines; ///< of each key
};
