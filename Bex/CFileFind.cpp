#include "Bex/CFileFind.h"

#include "Bex/CActivity.h"
#include "Bex/CFileException.h"
#include "Bex/TextFunctions.h"
#include "Platform/FileSystem.h"

#include <string_view>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CFileFind";
constexpr std::string_view WILDCARDS = "*?";

bool MatchesAll(std::string_view pattern) { return pattern == "*" || pattern == "*.*"; }

bool EndsWithNoCase(std::string_view text, std::string_view suffix)
{
    return text.size() >= suffix.size() && EqualNoCase(text.substr(text.size() - suffix.size()), suffix);
}

/// A plain "*suffix" is compared here: names may hold "*" and "?", which WildcardMatch never matches.
bool Matches(std::string_view name, std::string_view pattern)
{
    if (MatchesAll(pattern))
        return true;
    if (pattern.starts_with('*') && pattern.find_first_of(WILDCARDS, 1) == std::string_view::npos)
        return EndsWithNoCase(name, pattern.substr(1));
    return WildcardMatch(name, pattern);
}

} // namespace

bool CFileFind::Open(const CSimpleString& strPattern)
{
    const std::string_view path = strPattern.View();
    const size_t nSlash = path.rfind('/');
    m_strPattern = path.substr(nSlash + 1); // npos + 1 is 0
    m_strDirectory = nSlash == std::string_view::npos ? std::string_view("./") : path.substr(0, nSlash + 1);
    m_nNext = 0;
    m_entry = {};
    if (m_listing.Read(m_strDirectory.Text()))
        return true;
    const uint32_t dwError = Platform::LastError().dwSysError;
    if (dwError != Platform::SYS_FILE_NOT_FOUND && dwError != Platform::SYS_PATH_NOT_FOUND)
        ThrowFileException(SOURCE_FILE, __LINE__);
    return false;
}

bool CFileFind::Next()
{
    while (m_nNext < m_listing.Count()) {
        m_entry = m_listing.At(m_nNext++);
        CActivity::Alive(); // whoever looks at each of a million
        if (Matches(m_entry.pszName, m_strPattern))
            return true;
    }
    m_entry = {};
    return false;
}

int64_t CFileFind::Size() const
{
    return m_entry.pszName == nullptr
               ? -1
               : Platform::FileSize(CSimpleString(m_strDirectory).Append(m_entry.pszName).Text());
}

} // namespace Bex
