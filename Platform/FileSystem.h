#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Files and directories by name. Thread-safe; operations answer false and set LastError on failure.
/// Paths are NUL-terminated byte strings with "/" as the separator.
namespace Platform {

/// Nanoseconds since 1970-01-01 UTC. A file system without creation times gives the modification time.
struct SFileTimes
{
    int64_t iCreated = 0;
    int64_t iModified = 0;
    int64_t iAccessed = 0;
};

enum class EPathKind { Missing, File, Directory, Other, Failed };

bool RemoveFile(const char* pszPath);
/// For what a crash has left: busy when somebody has the file open for writing or locked; no links, no pipes.
bool RemoveUnlessInUse(const char* pszPath);
/// Replaces an existing target. Across file systems the copy is on stable storage and has its final name before the
/// source is removed.
bool MoveFileReplacing(const char* pszFrom, const char* pszTo);
bool RenameReplacing(const char* pszFrom, const char* pszTo); ///< within one file system
/// Fails with LIB_EXISTS when the target exists; never replaces it.
bool RenameNoReplace(const char* pszFrom, const char* pszTo);
/// That the file has its name is on stable storage. Where its directory may not be read, by a flush of the
/// file, and of the file system where that is not enough.
bool FlushName(const char* pszPath);
bool OwnerOf(const char* pszPath, unsigned& nUser); ///< of a file or a directory
bool GetFileTimes(const char* pszPath, SFileTimes& times);
/// Of what a symbolic link leads to, unless it is not followed: then it is Other. Failed sets LastError.
EPathKind KindOf(const char* pszPath, bool bFollow = true);
bool CreateOneDirectory(const char* pszPath); ///< one level, mode 0700
bool RemoveDirectory(const char* pszPath);    ///< an empty one
bool MayFill(const char* pszDirectory);       ///< whether this process may make files in it
bool SetWorkingDirectory(const char* pszPath);
std::string WorkingDirectory();
std::string ExecutablePath(); ///< of this process; empty on failure
bool IsNetworkPath(const char* pszPath);

/// A Windows-form path in this system's form: drive dropped, backslashes to slashes. Others come back unchanged.
std::string NativePath(std::string_view strPath);
/// The same, from the root on. An empty path stays.
std::string AbsolutePath(std::string_view strPath);

/// Size in bytes of the file or, for a symbolic link, of the link itself; -1 on failure.
int64_t FileSize(const char* pszPath);

/// How much of the volume of this path is left to this process, of its space or of its files, whichever is less,
/// rounded down. One that counts neither has 100 %.
bool FreePercent(const char* pszPath, int& iPercent);

} // namespace Platform
