#include "Bex/CLockFile.h"

#include "Platform/FileSystem.h"

CLockFile::~CLockFile()
{
    if (!m_bOpen)
        return;
    // While it is still locked: once it is closed the name may be another process's.
    Platform::RemoveFile(m_strName.Text());
    m_handle.Close();
}
