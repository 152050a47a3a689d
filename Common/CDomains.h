#pragma once

#include "Bex/CStorableStringList.h"
#include "Common/NoCase.h"

#include <string_view>
#include <unordered_map>

/// A list of domains. Shared between threads under its own lock.
class CDomains : public Bex::CStorableStringList
{
public:
    CDomains() : CStorableStringList(true) {}
    ~CDomains() override = default;
    void SetModified() override;

    /// The first entry behind pStart (null: from the first) that equals the name, ASCII case aside; null when none.
    /// Hold the list's lock as long as the entry is used.
    virtual const Bex::CSimpleString* FindDomain(std::string_view name, const Bex::CSimpleString* pStart = nullptr);

private:
    void BuildIndex();

    std::unordered_map<std::string_view, const Bex::CSimpleString*, SNoCaseHash, SNoCaseEqual> m_first; ///< by name
    bool m_bIndexed = false; ///< m_first is up to date; guarded by the list's lock like it
};

/// An address without "@" is local unless empty; one with "@" when what follows its first "@" is a local domain.
bool IsLocalAddress(std::string_view address);
