#pragma once

#include "Bex/CSimpleString.h"
#include "Platform/CDirectoryListing.h"

namespace Bex {

/// The entries of one directory that match a pattern, sorted by name bytewise, without "." and "..".
///
/// The pattern is the last part of the path given to Open; "*" and "*.*" match every name, other patterns ignore
/// ASCII case. The names are read by Open: later changes of the directory do not show. Used by one thread.
class CFileFind
{
public:
    /// False when the directory does not exist; CFileException when it cannot be listed.
    bool Open(const CSimpleString& strPattern);
    bool Next(); ///< moves to the next entry, at first to the first one; false at the end
    const char* Name() const { return m_entry.pszName; } ///< without directory; valid until Open
    bool IsDirectory() const { return m_entry.bDirectory; }
    int64_t Size() const; ///< of the current entry in bytes, asked anew; -1 when it has gone

private:
    CSimpleString m_strDirectory;
    CSimpleString m_strPattern;
    Platform::CDirectoryListing m_listing;
    size_t m_nNext = 0;
    Platform::SDirectoryEntry m_entry{};
};

} // namespace Bex
