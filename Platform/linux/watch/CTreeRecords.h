#pragma once

#include "Platform/CEventHandle.h"
#include "Platform/CTreeWatch.h"

#include <string>
#include <vector>

namespace Platform {

/// The records of a tree watch that nobody has fetched yet, up to a number of bytes, and whether any were lost.
///
/// Owned by the watch and used under its lock. The event, which the records do not own, is set from the first of them,
/// or the first loss, on until they are taken.
class CTreeRecords
{
public:
    /// Keeps the names for which the filter holds (null: all).
    CTreeRecords(CEventHandle& ready, size_t nMostBytes, CTreeWatch::Filter filter);

    void Keep(ETreeAction action, const std::string& strName);
    void KeepRename(const std::string& strOld, const std::string& strNew); ///< both halves when either name is wanted
    void Lose(SError why = {});                                            ///< something happened that is not told
    bool Take(std::vector<STreeRecord>& records, SError& loss);            ///< false when some were lost

private:
    bool IsWanted(const std::string& strName) const { return !m_filter || m_filter(strName); }
    bool IsToldAlready(ETreeAction action, const std::string& strName);
    bool TakeRoomFor(size_t nRecords, size_t nNameBytes);

    CEventHandle& m_ready;
    size_t m_nMostBytes;
    size_t m_nUsedBytes = 0;
    CTreeWatch::Filter m_filter;
    std::vector<STreeRecord> m_records;
    bool m_bLost = false;
    SError m_loss; ///< the first that was one
};

} // namespace Platform
