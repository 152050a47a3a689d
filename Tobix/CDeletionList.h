#pragma once

#include "Bex/CSimpleString.h"
#include "Common/CHeldMailFile.h"

#include <list>
#include <memory>
#include <string_view>
#include <unordered_set>

/// The queue files that have been delivered and are to be deleted, oldest first. Used by the agent's thread.
///
/// A file whose deletion fails stays listed, so that it is not delivered again, and is tried again at the next
/// call. A name that stands for another file or other content by now is dropped without deleting: that is new mail.
/// The files stay taken until they are gone; those of many failed deletions, which would keep the process from opening
/// others, do not.
class CDeletionList
{
public:
    static constexpr size_t MOST_HELD = 256;

    void Add(std::unique_ptr<CHeldMailFile> pFile);
    bool Contains(const Bex::CSimpleString& strPath) const { return m_paths.contains(strPath.View()); }
    bool IsEmpty() const { return m_entries.empty(); }

    /// Deletes every listed file it can. True when a name was met that stands for new mail.
    bool RemoveDelivered();

private:
    enum class EOutcome { Gone, Replaced, Kept };
    static EOutcome Remove(CHeldMailFile& file);

    std::list<std::unique_ptr<CHeldMailFile>> m_entries;
    std::unordered_set<std::string_view> m_paths; ///< of the entries
};
