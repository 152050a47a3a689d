#include "Common/CDomains.h"

#include "Bex/TextFunctions.h"
#include "Common/Globals.h"

void CDomains::SetModified()
{
    CStorableStringList::SetModified();
    m_bIndexed = false;
}

const Bex::CSimpleString* CDomains::FindDomain(std::string_view name, const Bex::CSimpleString* pStart)
{
    const Bex::CScopedLock lock(LockObject());
    if (pStart == nullptr) {
        BuildIndex();
        const auto found = m_first.find(name);
        return found != m_first.end() ? found->second : nullptr;
    }
    bool bBehind = false;
    for (const Bex::CSimpleString& strEntry : *this) {
        if (bBehind && strEntry.EqualsNoCase(name))
            return &strEntry;
        bBehind = bBehind || &strEntry == pStart;
    }
    return nullptr;
}

void CDomains::BuildIndex()
{
    if (m_bIndexed)
        return;
    m_first.clear();
    for (const Bex::CSimpleString& strEntry : *this)
        m_first.try_emplace(strEntry.View(), &strEntry);
    m_bIndexed = true;
}

bool IsLocalAddress(std::string_view address)
{
    const size_t nAt = address.find('@');
    if (nAt == std::string_view::npos)
        return !address.empty();
    return LocalDomains().FindDomain(address.substr(nAt + 1)) != nullptr;
}
