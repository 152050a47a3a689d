#pragma once

#include "Bex/CFile.h"
#include "Common/CContentDigest.h"

/// A mail file that nobody else may take: locked against other readers from its opening until it is removed, or until
/// this object goes. Remembers which file it is and what was read of it. Owned and used by one thread.
class CHeldMailFile : public Bex::CFile
{
public:
    /// Refused as busy (Platform::IsBusy) while somebody writes it, or where that cannot be told and it has not stood
    /// still for a second.
    void Take(const Bex::CSimpleString& strPath);
    uint32_t Read(void* pBuffer, uint32_t nCount) override;
    int64_t Seek(int64_t iOffset, Platform::ESeekFrom origin) override; ///< at the beginning the reading begins anew

    /// What failed to be taken is known by its name, too.
    void LookUnlessTaken(const Bex::CSimpleString& strPath);
    /// Another file, or another content, stands under the name; where only the times differ the content decides. False
    /// also when none does or nobody can tell.
    bool IsReplaced();
    /// False, and nothing removed, when the name stands for another file or content by now. A file that has gone raises
    /// the exception (LIB_NO_ENTRY), and so does one that cannot be looked at, which stays.
    bool RemoveIfStill();
    /// Likewise, to take the place of what has the target's name.
    bool MoveIfStill(const Bex::CSimpleString& strTarget);
    /// Likewise, within the directory and to a name that nothing has yet.
    bool RenameIfStill(const Bex::CSimpleString& strTarget);
    /// Nobody else may take it even so. False when somebody was faster: it is not ours any more.
    bool LetOthersRead();
    /// Gives the lock up and frees the descriptor; what it was stays known.
    void LetGo();

private:
    bool IsStill();
    bool Is(const Platform::SFileIdentity& present);
    bool HoldsWhatWasRead();

    Platform::SFileIdentity m_identity; ///< at its opening, or when that had failed
    CContentDigest m_digest;            ///< of what was read
};
