#pragma once

#include "Platform/CLocalSocket.h"
#include "Platform/FileIdentity.h"

#include <string>

namespace Platform {

/// Takes connections under a name in the file system. The name is removed with this object, unless somebody else's
/// socket has it by then. Owned and used by one thread; failures as of CLocalSocket.
class CLocalListener
{
public:
    CLocalListener() = default;
    ~CLocalListener() { Close(); }
    CLocalListener(const CLocalListener&) = delete;
    CLocalListener& operator=(const CLocalListener&) = delete;

    /// Whoever may write to the socket's file may connect; nobody can before it has the permission. A socket that a
    /// crash has left gives way; one under which somebody listens does not, nor does any other file:
    /// SYS_ALREADY_EXISTS.
    bool Listen(const char* pszPath, unsigned dwPermission, int iBacklog);
    bool Accept(CLocalSocket& accepted, const CWaitLimit& limit);
    void Close();

private:
    bool Bind(const char* pszPath);
    bool MakeWay(const char* pszPath) const;

    CLocalSocket m_socket;
    std::string m_strPath; ///< of our file; empty: there is none
    SFileIdentity m_file;
};

} // namespace Platform
