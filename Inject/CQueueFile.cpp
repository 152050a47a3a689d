#include "Inject/CQueueFile.h"

#include "Bex/TextFunctions.h"
#include "Inject/CRefusal.h"
#include "Platform/Errors.h"
#include "Platform/FileSystem.h"

namespace {

constexpr unsigned PERMISSION = 0640; ///< the daemon reads it as a member of the group
constexpr size_t PENDING_BYTES = 262144;

void Require(bool bSucceeded, const char* pszWhat, const std::string& strPath)
{
    if (bSucceeded)
        return;
    const Platform::SError error = Platform::LastError();
    throw CRefusal(EExit::Temporary, std::string(pszWhat) + " " + strPath + " (error " +
                                         std::to_string(error.iLibError) + ")" +
                                         (error.iLibError == Platform::LIB_NO_SPACE ? ": the disk is full" : ""));
}

} // namespace

CQueueFile::CQueueFile(const Bex::CSimpleString& strDirectory, const std::string& strName)
    : m_strPath(Bex::PathBelow(strDirectory, strName).Text())
{
    Require(m_temporary.CreateUnnamed(m_strPath.c_str(), m_writer, PERMISSION), "cannot make", m_strPath);
}

void CQueueFile::Write(std::string_view bytes)
{
    m_strPending += bytes;
    if (m_strPending.size() >= PENDING_BYTES)
        Flush();
}

void CQueueFile::Flush()
{
    Require(m_writer.Write(m_strPending.data(), m_strPending.size()) >= 0, "cannot write", m_strPath);
    m_strPending.clear();
}

void CQueueFile::Finish()
{
    Flush();
    Require(m_writer.Close() && m_temporary.Flush(), "cannot write", m_strPath);
}

/// What has its name but may lose it when the power goes is taken away again: its sender is told that it is not here.
/// When the daemon was faster, it is.
void CQueueFile::Commit()
{
    Require(m_temporary.TakeName(), "cannot name", m_strPath);
    if (Platform::FlushName(m_strPath.c_str()) || Platform::LastError().iLibError == Platform::LIB_NO_ENTRY)
        return;
    const Platform::SError error = Platform::LastError();
    if (!Platform::RemoveFile(m_strPath.c_str()) && Platform::LastError().iLibError == Platform::LIB_NO_ENTRY)
        return;
    Platform::SetLastError(error);
    Require(false, "cannot make durable", m_strPath);
}
