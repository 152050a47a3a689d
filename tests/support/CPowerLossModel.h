#pragma once

#include "Platform/CCallWatcher.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

/// What disks may hold after a power cut. Watches, while it lives, what the process changes below some directories,
/// whose content at the start is safe. Data and names are lost independently of each other, each name on its own,
/// unless a flush has covered them; a rename has happened or has not, and may survive without its data, except where a
/// write-out that was begun before says that the disk orders them.
/// After each change the check sees many trees that a cut there could leave.
class CPowerLossModel : public Platform::CCallWatcher
{
public:
    using Tree = std::map<std::string_view, std::string_view>; ///< files: path to content
    using Check = std::function<void(const Tree& tree, const std::string& strCut)>;

    CPowerLossModel(const std::vector<std::filesystem::path>& roots, Check check) : m_check(std::move(check))
    {
        for (const auto& root : roots) {
            m_safe[root] = New(root);
            for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
                const File file = m_safe[entry.path()] = New(entry.path());
                if (!file->bDirectory)
                    file->strNow = file->strSafe = Read(entry.path());
            }
        }
        m_now = m_safe;
    }

    void OnCall(const Platform::SCall& call) override
    {
        using Platform::EFault;
        const std::string strPath = call.pszPath != nullptr ? call.pszPath : "";
        const std::string strTo = call.pszTo != nullptr ? call.pszTo : "";
        const bool bVolume = call.kind == EFault::FlushVolume;
        if (call.kind == EFault::Open && Find(strPath) == nullptr)
            Change({"", strPath, New(strPath)});
        else if (call.kind == EFault::Write || call.kind == EFault::Truncate)
            Written(PathOf(call.iDescriptor));
        else if (call.kind == EFault::WriteOut)
            WrittenOut(PathOf(call.iDescriptor));
        else if (bVolume || call.kind == EFault::Flush)
            Flushed(PathOf(call.iDescriptor), bVolume);
        else if (call.kind == EFault::CreateDirectory)
            Change({"", strPath, New(strPath)});
        else if (call.kind == EFault::Rename || call.kind == EFault::Link || call.kind == EFault::Remove)
            Change({call.kind == EFault::Link ? "" : strPath, strTo, Find(strPath)});
        else
            return;
        Cut("after step " + std::to_string(++m_nSteps) + " (" + strPath + ")");
    }
    void Cut(const std::string& strWhen) ///< as after each change
    {
        for (int iData = ALL; iData < KINDS; ++iData)
            for (const bool bNames : {false, true})
                Show(
                    strWhen + (bNames ? ", names" : ", no names") + " and data " + std::to_string(iData),
                    [=](size_t) { return bNames; }, [=] { return iData; });
        for (size_t n = m_changes.size() - std::min(m_changes.size(), MOST_SINGLES); n < m_changes.size(); ++n)
            for (const bool bKept : {false, true})
                Show(
                    strWhen + (bKept ? ", only " : ", all but ") + m_changes[n].strFrom + ">" + m_changes[n].strTo,
                    [=](size_t nAsked) { return (nAsked == n) == bKept; }, [=] { return bKept ? NONE : ALL; });
        for (int n = 0; n < MIXES; ++n)
            Show(
                strWhen + ", mixed", [&](size_t) { return m_random() % 2 == 0; }, [&] { return m_random() % KINDS; });
    }

private:
    struct SFile
    {
        dev_t device;
        bool bDirectory;
        std::string strNow, strSafe;
    };
    using File = std::shared_ptr<SFile>;
    using Names = std::map<std::string, File>;
    struct SChange
    {
        std::string strFrom, strTo; ///< one may be empty
        File file;
    };
    enum EData { ALL, NONE, ZEROS, HALF, KINDS };

    static constexpr size_t MOST_SINGLES = 12; ///< changes lost or kept alone: the newest
    static constexpr int MIXES = 12;

    static File New(const std::filesystem::path& path)
    {
        struct stat status
        {};
        stat(path.c_str(), &status);
        return std::make_shared<SFile>(SFile{status.st_dev, S_ISDIR(status.st_mode), "", ""});
    }
    static std::string Read(const std::string& strPath)
    {
        std::ifstream stream(strPath, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    static std::string PathOf(int iDescriptor)
    {
        return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(iDescriptor));
    }
    static std::string ParentOf(const std::string& strPath) { return strPath.substr(0, strPath.rfind('/')); }
    static void Apply(const SChange& change, Names& names)
    {
        if (const auto old = names.find(change.strFrom); old != names.end() && old->second == change.file)
            names.erase(old);
        if (!change.strTo.empty())
            names[change.strTo] = change.file;
    }
    File Find(const std::string& strPath) const
    {
        const auto found = m_now.find(strPath);
        return found != m_now.end() ? found->second : nullptr;
    }
    void Change(const SChange& change)
    {
        if (change.file == nullptr || !m_now.contains(ParentOf(change.strTo.empty() ? change.strFrom : change.strTo)))
            return;
        Apply(change, m_now);
        m_changes.push_back(change);
    }
    void Written(const std::string& strPath)
    {
        if (const File file = Find(strPath))
            file->strNow = Read(strPath);
    }
    void WrittenOut(const std::string& strPath)
    {
        if (const File file = Find(strPath))
            file->strSafe = file->strNow;
    }
    void Flushed(const std::string& strPath, bool bVolume)
    {
        const File flushed = New(strPath);
        for (const auto& [strName, file] : m_now)
            if (bVolume ? file->device == flushed->device : strName == strPath)
                file->strSafe = file->strNow;
        std::vector<SChange> open;
        for (const SChange& change : m_changes) {
            if (bVolume ? change.file->device == flushed->device
                        : ParentOf(change.strFrom) == strPath || ParentOf(change.strTo) == strPath)
                Apply(change, m_safe);
            else
                open.push_back(change);
        }
        m_changes.swap(open);
    }

    template <class TKept, class TData>
    void Show(const std::string& strCut, TKept Kept, TData Data)
    {
        Names names = m_safe;
        for (size_t n = 0; n < m_changes.size(); ++n)
            if (Kept(n))
                Apply(m_changes[n], names);
        Tree tree;
        for (const auto& [strName, file] : names)
            if (!file->bDirectory && names.contains(ParentOf(strName)))
                tree[strName] = Content(*file, static_cast<int>(Data()));
        m_check(tree, strCut);
    }
    std::string_view Content(const SFile& file, int iData)
    {
        const std::string_view now = file.strNow;
        if (iData == ALL || now == file.strSafe)
            return now;
        if (iData == NONE || now.size() == file.strSafe.size()) // overwritten in place
            return file.strSafe;
        m_strZeros.resize(std::max(m_strZeros.size(), now.size()));
        return iData == ZEROS ? std::string_view(m_strZeros).substr(0, now.size()) : now.substr(0, now.size() / 2);
    }

    Check m_check;
    Names m_now, m_safe;
    std::vector<SChange> m_changes; ///< of names, since they were flushed
    std::string m_strZeros;
    std::mt19937 m_random; ///< the same mixes each time
    size_t m_nSteps = 0;
};
