#include "Platform/CFlushGroup.h"

#include "Platform/DataOrder.h"
#include "Platform/linux/file/Flush.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Platform {

namespace {

bool FlushVolume(int iDescriptor)
{
    int iResult = -1;
    do
        iResult =
            GuardedCall({.kind = EFault::FlushVolume, .iDescriptor = iDescriptor}, [&] { return syncfs(iDescriptor); });
    while (iResult != 0 && errno == EINTR);
    return Succeeded(iResult);
}

} // namespace

CFlushGroup::~CFlushGroup() { Empty(); }

void CFlushGroup::Empty()
{
    for (const SVolume& volume : m_volumes)
        close(volume.iDescriptor);
    m_volumes.clear();
    m_directories.clear();
    m_next.m_written.clear();
}

bool CFlushGroup::FindVolume(unsigned long nDevice, size_t& nVolume) const
{
    for (nVolume = 0; nVolume < m_volumes.size(); ++nVolume) {
        if (m_volumes[nVolume].nDevice == nDevice)
            return true;
    }
    return false;
}

bool CFlushGroup::Add(const char* pszDirectory)
{
    // Looked at each time: the name may stand for another file system than before.
    struct stat status
    {};
    size_t nVolume = 0;
    if (!Succeeded(GuardedCall({EFault::Stat}, [&] { return stat(pszDirectory, &status); })))
        return false;
    if (!FindVolume(status.st_dev, nVolume)) {
        CDescriptor directory(GuardedCall({EFault::Open, pszDirectory},
                                          [&] { return open(pszDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
        if (!directory.IsValid() || fstat(directory.Get(), &status) != 0)
            return FailWithErrno();
        if (!FindVolume(status.st_dev, nVolume))
            m_volumes.push_back(
                {status.st_dev, directory.Release(), DataOrderAt(pszDirectory) == EDataOrder::WithFileAlone});
    }
    m_directories[pszDirectory].nVolume = nVolume;
    return true;
}

void CFlushGroup::MarkWritten(const char* pszDirectory, bool bPromised)
{
    auto found = m_directories.find(std::string_view(pszDirectory));
    if (found == m_directories.end()) {
        if (!Add(pszDirectory)) {
            if (bPromised)
                m_next.m_missed = LastError();
            return;
        }
        found = m_directories.find(std::string_view(pszDirectory));
    }
    SVolume& volume = m_volumes[found->second.nVolume];
    SMark& mark = volume.bByDirectory ? found->second.mark : volume.mark;
    if (mark.nTake != m_nTakes) {
        m_next.m_written.push_back({false, volume.iDescriptor, volume.bByDirectory ? found->first : std::string()});
        mark = {m_nTakes, m_next.m_written.size() - 1};
    }
    m_next.m_written[mark.nPlace].bPromised |= bPromised;
}

void CFlushGroup::FlushLater(const char* pszDirectory)
{
    if (!m_later.contains(std::string_view(pszDirectory)))
        m_later.insert(pszDirectory);
}

CFlushGroup::CPending CFlushGroup::TakePending()
{
    for (const std::string& strDirectory : std::exchange(m_later, {}))
        MarkWritten(strDirectory.c_str(), false);
    ++m_nTakes;
    return std::exchange(m_next, {});
}

/// Some network file systems know no flush of a directory.
bool CFlushGroup::CPending::FlushOne(const SWritten& written)
{
    if (written.strDirectory.empty())
        return FlushVolume(written.iDescriptor);
    return FlushDirectory(written.strDirectory) ||
           (LastError().iLibError == LIB_INVALID && FlushVolume(written.iDescriptor));
}

bool CFlushGroup::CPending::Flush(SError* pUnpromised) const
{
    SError error = m_missed;
    for (const SWritten& written : m_written) {
        if (FlushOne(written))
            continue;
        if (written.bPromised)
            error = LastError();
        else if (pUnpromised != nullptr)
            *pUnpromised = LastError();
    }
    if (error.iLibError == LIB_NONE && error.dwSysError == SYS_NONE)
        return true;
    SetLastError(error);
    return false;
}

} // namespace Platform
