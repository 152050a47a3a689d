#pragma once

#include "Bex/CSimpleString.h"
#include "Platform/FileIdentity.h"

#include <list>
#include <string_view>
#include <unordered_set>

/// The queue files that have been delivered and are to be deleted, oldest first. Used by the agent's thread.
///
/// A file whose deletion fails stays listed, so that it is not delivered again, and is tried again at the next
/// call. A name that stands for another file by now is dropped without deleting: that file is new mail.
class CDeletionList
{
public:
    void Add(const Bex::CSimpleString& strPath, const Platform::SFileIdentity& identity);
    bool Contains(const Bex::CSimpleString& strPath) const { return m_paths.contains(strPath.View()); }
    bool IsEmpty() const { return m_entries.empty(); }

    /// Deletes every listed file it can. True when a name was met that stands for new mail.
    bool RemoveDelivered();

private:
    struct SEntry
    {
        Bex::CSimpleString strPath;
        Platform::SFileIdentity identity; ///< of the file that was delivered
    };
    enum class EOutcome { Gone, Replaced, Kept };
    static EOutcome Remove(const SEntry& entry);

    std::list<SEntry> m_entries;
    std::unordered_set<std::string_view> m_paths; ///< of the entries
};
