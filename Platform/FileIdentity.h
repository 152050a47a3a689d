#pragma once

#include <cstdint>

namespace Platform {

/// Which file a name stood for, and in what state: tells later whether the name still stands for the same content.
struct SFileIdentity
{
    uint64_t nDevice = 0;
    uint64_t nNumber = 0;
    int64_t iSize = 0;     ///< bytes
    int64_t iModified = 0; ///< nanoseconds since 1970-01-01 UTC

    bool operator==(const SFileIdentity&) const = default;
    bool IsSameInode(const SFileIdentity& other) const { return nDevice == other.nDevice && nNumber == other.nNumber; }
    /// With other times it may hold the same content, or another one of the same size.
    bool IsSameFile(const SFileIdentity& other) const { return IsSameInode(other) && iSize == other.iSize; }
};

enum class ELinks { Keep, Follow };

/// Of a symbolic link, or of what it leads to. False: LastError. Any thread.
bool IdentityOf(const char* pszPath, SFileIdentity& identity, ELinks links = ELinks::Keep);

} // namespace Platform
