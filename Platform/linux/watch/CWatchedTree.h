#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Platform {

/// Which directories of a tree a notification queue watches, and where in the tree each of them is.
///
/// A directory knows its own name only, so that moving one with everything below it changes one entry. Used under
/// the lock of its owner, which also owns the queue.
class CWatchedTree
{
public:
    struct SDirectory
    {
        int iWatch = -1;
        SDirectory* pParent = nullptr;         ///< null: the root
        const std::string* pstrName = nullptr; ///< the key under which the parent has it
        std::map<std::string, std::unique_ptr<SDirectory>, std::less<>> children;
    };
    /// Known: at that place already. Elsewhere: it is watched under another name. Gone: nothing to watch there (any
    /// more). Failed: errno.
    enum class EAdded { New, Known, Elsewhere, Gone, Failed };

    bool Open(int iQueue, const char* pszRoot); ///< watches the root alone; false: errno
    SDirectory& Root() { return m_root; }
    SDirectory* Find(int iWatch) const;
    SDirectory* Child(const SDirectory& parent, std::string_view strName) const;

    EAdded Add(SDirectory& parent, std::string_view strName, SDirectory*& pDirectory);
    void Forget(SDirectory& directory); ///< with everything below it; not for the root
    void Move(SDirectory& directory, SDirectory& newParent, std::string_view strNewName);
    bool IsInPlace(const SDirectory& directory); ///< the directory with its name is still the one that is watched

    /// Takes every directory but the root off the tree. The kernel watches on until StopWatching, so that a directory
    /// that is added again in between loses nothing.
    std::vector<int> Clear();
    void StopWatching(const std::vector<int>& watches); ///< of those that are not in the tree any more

    void RelativeName(const SDirectory& directory, std::string_view strLeaf, std::string& strName) const;
    const char* FullPath(const SDirectory& directory, std::string_view strLeaf); ///< valid until the next call

private:
    void Unlist(SDirectory& directory);

    int m_iQueue = -1;
    std::string m_strRoot; ///< with a slash at its end
    std::string m_strPath; ///< kept for its memory
    SDirectory m_root;
    std::unordered_map<int, SDirectory*> m_byWatch;
};

} // namespace Platform
