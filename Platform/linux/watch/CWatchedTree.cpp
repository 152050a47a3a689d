#include "Platform/linux/watch/CWatchedTree.h"

#include "Platform/linux/watch/NotifyQueue.h"

#include <cerrno>
#include <sys/inotify.h>
#include <utility>

namespace Platform {

namespace {

constexpr uint32_t IN_DIRECTORY = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE | IN_ONLYDIR;
constexpr uint32_t OF_ROOT = IN_DELETE_SELF | IN_MOVE_SELF;

void AppendPath(const CWatchedTree::SDirectory& directory, std::string& strPath)
{
    if (directory.pParent == nullptr)
        return;
    AppendPath(*directory.pParent, strPath);
    strPath += *directory.pstrName;
    strPath += '/';
}

} // namespace

bool CWatchedTree::Open(int iQueue, const char* pszRoot)
{
    m_iQueue = iQueue;
    m_strRoot = pszRoot;
    if (!m_strRoot.ends_with('/'))
        m_strRoot += '/';
    m_root.iWatch = AddWatch(m_iQueue, m_strRoot.c_str(), IN_DIRECTORY | OF_ROOT);
    if (m_root.iWatch < 0)
        return false;
    m_byWatch.emplace(m_root.iWatch, &m_root);
    return true;
}

CWatchedTree::SDirectory* CWatchedTree::Find(int iWatch) const
{
    const auto found = m_byWatch.find(iWatch);
    return found == m_byWatch.end() ? nullptr : found->second;
}

CWatchedTree::SDirectory* CWatchedTree::Child(const SDirectory& parent, std::string_view strName) const
{
    const auto found = parent.children.find(strName);
    return found == parent.children.end() ? nullptr : found->second.get();
}

CWatchedTree::EAdded CWatchedTree::Add(SDirectory& parent, std::string_view strName, SDirectory*& pDirectory)
{
    const int iWatch = AddWatch(m_iQueue, FullPath(parent, strName), IN_DIRECTORY | IN_DONT_FOLLOW);
    if (iWatch < 0)
        return errno == ENOENT || errno == ENOTDIR || errno == ELOOP ? EAdded::Gone : EAdded::Failed;
    pDirectory = Child(parent, strName);
    if (SDirectory* pKnown = Find(iWatch); pKnown != nullptr)
        return pKnown == pDirectory ? EAdded::Known : EAdded::Elsewhere;
    if (pDirectory != nullptr)
        Forget(*pDirectory);
    const auto [position, bInserted] = parent.children.emplace(strName, std::make_unique<SDirectory>());
    pDirectory = position->second.get();
    pDirectory->iWatch = iWatch;
    pDirectory->pParent = &parent;
    pDirectory->pstrName = &position->first;
    m_byWatch.emplace(iWatch, pDirectory);
    return EAdded::New;
}

void CWatchedTree::Unlist(SDirectory& directory)
{
    for (const auto& [strName, pChild] : directory.children)
        Unlist(*pChild);
    inotify_rm_watch(m_iQueue, directory.iWatch); // fails where the kernel has done so itself
    m_byWatch.erase(directory.iWatch);
}

void CWatchedTree::Forget(SDirectory& directory)
{
    Unlist(directory);
    auto& siblings = directory.pParent->children;
    siblings.erase(siblings.find(*directory.pstrName));
}

void CWatchedTree::Move(SDirectory& directory, SDirectory& newParent, std::string_view strNewName)
{
    auto& siblings = directory.pParent->children;
    auto moved = siblings.extract(siblings.find(*directory.pstrName));
    if (SDirectory* pReplaced = Child(newParent, strNewName); pReplaced != nullptr)
        Forget(*pReplaced);
    moved.key() = strNewName;
    const auto inserted = newParent.children.insert(std::move(moved));
    directory.pParent = &newParent;
    directory.pstrName = &inserted.position->first;
}

bool CWatchedTree::IsInPlace(const SDirectory& directory)
{
    if (directory.pParent == nullptr)
        return true;
    const char* pszPath = FullPath(*directory.pParent, *directory.pstrName);
    const int iWatch = AddWatch(m_iQueue, pszPath, IN_DIRECTORY | IN_DONT_FOLLOW);
    return iWatch == directory.iWatch;
}

std::vector<int> CWatchedTree::Clear()
{
    std::vector<int> watches;
    watches.reserve(m_byWatch.size());
    for (const auto& [iWatch, pDirectory] : m_byWatch)
        watches.push_back(iWatch);
    m_root.children.clear();
    m_byWatch.clear();
    m_byWatch.emplace(m_root.iWatch, &m_root);
    return watches;
}

void CWatchedTree::StopWatching(const std::vector<int>& watches)
{
    for (const int iWatch : watches) {
        if (Find(iWatch) == nullptr)
            inotify_rm_watch(m_iQueue, iWatch);
    }
}

void CWatchedTree::RelativeName(const SDirectory& directory, std::string_view strLeaf, std::string& strName) const
{
    strName.clear();
    AppendPath(directory, strName);
    strName += strLeaf;
}

const char* CWatchedTree::FullPath(const SDirectory& directory, std::string_view strLeaf)
{
    m_strPath = m_strRoot;
    AppendPath(directory, m_strPath);
    m_strPath += strLeaf;
    return m_strPath.c_str();
}

} // namespace Platform
