#pragma once

#include "Bex/CFile.h"
#include "Common/CContentDigest.h"

/// A mail file that nobody else may take: locked against other readers from its opening until it is removed, or until
/// this object goes. Remembers which file it is and what was read of it. Owned and used by one thread.
class CHeldMailFile : public Bex::CFile
{
public:
    /// Refused as busy (Platform::IsBusy) while somebody writes it, or where that cannot be told and it has not stood
    /// still for a second. Its name and which file it is are known then, too.
    void Take(const Bex::CSimpleString& strPath);
    uint32_t Read(void* pBuffer, uint32_t nCount) override;
    int64_t Seek(int64_t iOffset, Platform::ESeekFrom origin) override; ///< at the beginning the reading begins anew

    const Platform::SFileIdentity& Identity() const { return m_identity; } ///< just before its opening, or at it

    /// As CFile::RemoveIfStill; but where only the times differ the content decides.
    bool RemoveIfStill();
    /// Likewise, to take the place of what has the target's name. Gives the lock up: a move to another volume reads it.
    bool MoveIfStill(const Bex::CSimpleString& strTarget);
    /// Gives the lock up and frees the descriptor; what it was stays known.
    void LetGo();

private:
    bool IsStill(Platform::SFileIdentity& present);
    bool HoldsWhatWasRead(const Platform::SFileIdentity& present);

    Platform::SFileIdentity m_identity;
    CContentDigest m_digest; ///< of what was read
};
