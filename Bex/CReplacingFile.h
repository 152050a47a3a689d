#pragma once

#include "Bex/CTextFile.h"
#include "Platform/CStartsNoChild.h"
#include "Platform/CTemporaryFile.h"

#include <memory>

namespace Bex {

/// A file that is written beside its target and gets the target's name only when it is complete: whoever reads the
/// target sees all of it, or what was there before. A file that was not committed goes with this object.
///
/// Owned and used by one thread, one at a time, as no child is started from its making until it is closed. Nothing that
/// has the temporary name already is written to. Failures raise CFileException.
class CReplacingFile : public CTextFile
{
public:
    /// A null name stands for ".<target's name>.tmp" beside the target.
    explicit CReplacingFile(const CSimpleString& strTarget, const char* pszTemporary = nullptr);
    ~CReplacingFile() override = default;

    void Close() override;
    // The following close the file first, if it is open. When one fails it may be called again.
    void MakeDurable();   ///< the content is on stable storage before it gets its name
    bool StartWriteOut(); ///< the content reaches it before the name does; false where a flush of the volume is needed
    void Commit();        ///< replaces the target, whose mode and owner it takes
    bool CommitNew();     ///< false: something has the target's name, and keeps it
    void SetTarget(const CSimpleString& strTarget); ///< another one in the same directory
    void Leave();                                   ///< keeps it under its temporary name, for people to find

private:
    using CTextFile::Open; // it is open from its making
    void Complete();

    CSimpleString m_strTarget;
    Platform::CTemporaryFile m_temporary;
    std::unique_ptr<Platform::CStartsNoChild> m_pAlone;
    bool m_bComplete = false; ///< all that was written is in it
};

} // namespace Bex
