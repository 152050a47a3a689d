#include "Bex/CLockFile.h"

CLockFile::~CLockFile() { CLockFile::Discard(); }

void CLockFile::Discard()
{
    if (!m_bOpen)
        return;
    // While it is still locked: once it is closed the name may be another process's.
    m_handle.Remove();
    m_handle.Close();
    m_bOpen = false;
}
