#include "Common/CAliases.h"

#include "Bex/TextFunctions.h"
#include "Common/CAliasIndex.h"
#include "Common/CAliasPreresolver.h"
#include "Common/Globals.h"

#include <utility>
#include <vector>

CAliases::CAliases() = default;

CAliases::~CAliases() = default;

void CAliases::SetModified()
{
    CStorableStringHash::SetModified();
    m_pIndex.reset();
}

CAliasIndex& CAliases::Index()
{
    if (!m_pIndex)
        m_pIndex = std::make_unique<CAliasIndex>(*this);
    return *m_pIndex;
}

bool CAliases::OnLoadBegin()
{
    m_iGood = 0;
    m_iFaulty = 0;
    return true;
}

bool CAliases::OnLoadEntry(Bex::CSimpleString& strKey, Bex::CSimpleString& strValue)
{
    strKey.ToLower();
    const Bex::CSimpleString strWritten = strValue;
    const EAliasFault fault = FaultOf(strKey, strValue);
    ++(fault == EAliasFault::None ? m_iGood : m_iFaulty);
    if (fault != EAliasFault::None)
        OnFaulty(fault, strKey, strWritten);
    return fault == EAliasFault::None;
}

EAliasFault CAliases::FaultOf(const Bex::CSimpleString& strKey, Bex::CSimpleString& strValue) const
{
    const bool bAddress = strKey.Contains('@');
    if (bAddress && strKey.At(0) == '@')
        return EAliasFault::NoLocalPart;
    if (bAddress && !IsLocalAddress(strKey))
        return EAliasFault::NotLocal;
    if (strKey.EqualsNoCase(strValue))
        return EAliasFault::Itself;
    if (strValue.Contains('@'))
        return EAliasFault::None;
    Loading().Lookup(strValue, strValue); // one step, to what an earlier line said
    if (strKey.EqualsNoCase(strValue))
        return EAliasFault::Itself;
    return Users().IsUser(strValue) ? EAliasFault::None : EAliasFault::NoUser;
}

bool CAliases::LookupAlias(std::string_view address, Bex::CSimpleString& strTarget)
{
    const Bex::CScopedLock lock(LockObject());
    const CAliasIndex& index = Index();
    const CAliasIndex::Id entry = index.Find(address);
    if (entry == CAliasIndex::NONE)
        return false;
    strTarget = index.Entry(entry).value;
    return true;
}

CAliases::SStep CAliases::Step(std::string_view address)
{
    const Bex::CScopedLock lock(LockObject());
    const CAliasIndex& index = Index();
    const CAliasIndex::STarget target = index.Resolve(address);
    if (target.entry == CAliasIndex::NONE)
        return {{}, target.strUser};
    return {index.Entry(target.entry).key, index.Entry(target.entry).value};
}

bool CAliases::PreresolveAliases(const std::function<bool()>& ShallStop)
{
    CHashMap resolved;
    for (CIterator node(*this); node; ++node) // only this thread changes the table: lookups go on meanwhile
        resolved.Set(node->key, node->value);
    std::vector<Bex::CSimpleString> removed;
    {
        CAliasIndex index(resolved);
        if (!CAliasPreresolver(index).Run(ShallStop))
            return false;
        for (CAliasIndex::Id entry = 0; entry < index.Count(); ++entry) {
            if (index.IsHidden(entry))
                removed.push_back(index.Entry(entry).key);
        }
    }
    for (const Bex::CSimpleString& strKey : removed) {
        OnRemoved(strKey);
        resolved.Remove(strKey);
    }
    auto pIndex = std::make_unique<CAliasIndex>(resolved);
    std::unique_ptr<CAliasIndex> pOld; // freed, like the old entries, when the lock is open again
    const Bex::CScopedLock lock(LockObject());
    pOld = std::move(m_pIndex);
    Swap(resolved);
    m_pIndex = std::move(pIndex);
    return true;
}

void CAliases::TakeOver(CAliases& fresh)
{
    std::unique_ptr<CAliasIndex> pOld; // freed when the lock is open again
    const Bex::CScopedLock lock(LockObject());
    pOld = std::move(m_pIndex);
    CStorableStringHash::TakeOver(fresh);
    m_pIndex = std::move(fresh.m_pIndex); // its entries have moved with the content
    m_iGood = fresh.m_iGood;
    m_iFaulty = fresh.m_iFaulty;
}
