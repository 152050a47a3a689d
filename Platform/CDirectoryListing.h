#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Platform {

struct SDirectoryEntry
{
    const char* pszName;
    bool bDirectory; ///< a real directory; false for a symbolic link to one
    bool bRegular;   ///< a regular file or a symbolic link
};

/// The entries of one directory without "." and "..", sorted bytewise by name; held in one compact block.
/// Used by one thread.
class CDirectoryListing
{
public:
    bool Read(const char* pszDirectory); ///< false: LastError; the listing is then empty
    size_t Count() const { return m_entries.size(); }
    SDirectoryEntry At(size_t nIndex) const;

private:
    struct SEntry
    {
        uint32_t dwName; ///< offset into m_names
        uint8_t byKind;
    };
    std::vector<char> m_names;
    std::vector<SEntry> m_entries;
};

} // namespace Platform
