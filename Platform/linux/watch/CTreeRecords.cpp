#include "Platform/linux/watch/CTreeRecords.h"

#include <utility>

namespace Platform {

namespace {

constexpr size_t RECORD_BYTES = 16; ///< that a record takes besides its name

} // namespace

CTreeRecords::CTreeRecords(CEventHandle& ready, size_t nMostBytes, CTreeWatch::Filter filter)
    : m_ready(ready), m_nMostBytes(nMostBytes), m_filter(std::move(filter))
{}

void CTreeRecords::Keep(ETreeAction action, const std::string& strName)
{
    if (!IsWanted(strName) || IsToldAlready(action, strName))
        return;
    if (!TakeRoomFor(1, strName.size()))
        return Lose();
    m_records.push_back({action, strName});
    if (m_records.size() == 1)
        m_ready.Set();
}

void CTreeRecords::KeepRename(const std::string& strOld, const std::string& strNew)
{
    if (!IsWanted(strOld) && !IsWanted(strNew))
        return;
    if (!TakeRoomFor(2, strOld.size() + strNew.size()))
        return Lose();
    m_records.push_back({ETreeAction::RenamedFrom, strOld});
    m_records.push_back({ETreeAction::RenamedTo, strNew});
    m_ready.Set();
}

void CTreeRecords::Lose(SError why)
{
    if (m_loss.iLibError == 0)
        m_loss = why;
    if (!std::exchange(m_bLost, true))
        m_ready.Set();
}

bool CTreeRecords::Take(std::vector<STreeRecord>& records, SError& loss)
{
    loss = std::exchange(m_loss, {});
    records.swap(m_records);
    m_records.clear();
    m_nUsedBytes = 0;
    m_ready.Reset();
    return !std::exchange(m_bLost, false);
}

/// By the last record, which then stands for both. A burst of new files takes half the space.
bool CTreeRecords::IsToldAlready(ETreeAction action, const std::string& strName)
{
    if (m_records.empty() || action != ETreeAction::Modified || m_records.back().strName != strName)
        return false;
    ETreeAction& last = m_records.back().action;
    if (last == ETreeAction::Added)
        last = ETreeAction::Modified;
    return last == ETreeAction::Modified;
}

bool CTreeRecords::TakeRoomFor(size_t nRecords, size_t nNameBytes)
{
    const size_t nBytes = nRecords * RECORD_BYTES + nNameBytes;
    if (m_nUsedBytes + nBytes > m_nMostBytes)
        return false;
    m_nUsedBytes += nBytes;
    return true;
}

} // namespace Platform
