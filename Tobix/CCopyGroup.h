#pragma once

#include "Bex/CSimpleString.h"
#include "Platform/CFlushGroup.h"
#include "Platform/FileIdentity.h"

#include <cstdint>
#include <vector>

/// Queue files that were delivered together with the copies made of them, up to the flush that makes the copies
/// durable: only then may the queue files go. Owned and used by the agent's thread.
///
/// One flush for many copies costs little more than one for a single copy. The limit keeps small what a crash
/// between the flush and the deletions delivers twice.
class CCopyGroup
{
public:
    static constexpr uint32_t MOST_COPIES = 64;

    struct SDelivered
    {
        Bex::CSimpleString strName; ///< of the queue file, bare
        Platform::SFileIdentity identity;
    };

    /// Whether a mail with so many copies still fits.
    bool HasRoomFor(uint32_t nCopies) const { return m_nCopies + nCopies <= MOST_COPIES; }
    bool IsEmpty() const { return m_delivered.empty() && m_nCopies == 0; }

    /// Before a copy is written there, so that a write error from then on reaches the flush.
    void Prepare(const Bex::CSimpleString& strDirectory) { m_flush.Add(strDirectory.Text()); }
    void Written(const Bex::CSimpleString& strDirectory);
    void AddDelivered(const Bex::CSimpleString& strName, const Platform::SFileIdentity& identity);

    /// Flushes the copies and empties the group; false (Platform::LastError) when they may be lost.
    bool Finish(std::vector<SDelivered>& delivered);

private:
    Platform::CFlushGroup m_flush;
    std::vector<SDelivered> m_delivered;
    uint32_t m_nCopies = 0;
};
