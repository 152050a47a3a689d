#pragma once

#include "Platform/CFileHandle.h"

#include <string>

namespace Platform {

/// A file in the making, under a temporary name beside its target: it becomes the target, or goes with this object.
///
/// Made exclusively: nothing that has the temporary name already is ever written to. What a crash has left there is
/// removed; a file in use, a directory, a link or a pipe is left alone, and another name is taken. While this object
/// lives RemoveUnlessInUse spares the file, also when its writer has closed it. Used by one thread; operations answer
/// false and set LastError on failure, and can then be tried again.
class CTemporaryFile
{
public:
    CTemporaryFile() = default;
    ~CTemporaryFile();
    CTemporaryFile(const CTemporaryFile&) = delete;
    CTemporaryFile& operator=(const CTemporaryFile&) = delete;

    /// Opens it for writing, too. A null name stands for ".<target's name>.tmp".
    bool Create(const char* pszTarget, CFileHandle& writer, const char* pszTemporary = nullptr,
                unsigned dwPermission = 0600);
    /// The same for one that is to take its name: without any name until then, so that not even a kill leaves anything,
    /// where the file system can. Its name is the only thing that others ever see of it.
    bool CreateUnnamed(const char* pszTarget, CFileHandle& writer, unsigned dwPermission);
    bool CreateLink(const char* pszTarget, const char* pszContent); ///< a symbolic link instead of a file
    const std::string& Path() const { return m_strPath; }

    // What follows comes when the writer has closed the file, and none of it after the file has got its name.

    bool Flush();         ///< its content is then on stable storage
    bool StartWriteOut(); ///< its content is then on its way there, see OrdersDataBeforeNames
    /// Of a file; anything else, or nothing, of that name changes nothing. The owner where we may give files away.
    bool TakeModeAndOwnerOf(const char* pszPath);
    bool Replace();  ///< becomes the target in place of what has that name
    bool TakeName(); ///< becomes the target; LIB_EXISTS when something has that name
    void SetTarget(const char* pszTarget) { m_strTarget = pszTarget; } ///< another one in the same directory
    void Leave();                                                      ///< stays under its temporary name

private:
    template <class TMake>
    bool MakeUnder(const std::string& strPath, TMake Make);
    bool LetGo();

    std::string m_strTarget;
    std::string m_strPath;
    CFileHandle m_holder; ///< reads only, so that nobody takes the file for one still being written
    bool m_bPresent = false;
    bool m_bUnnamed = false;
};

} // namespace Platform
