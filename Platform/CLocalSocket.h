#pragma once

#include "Platform/CWaitLimit.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace Platform {

class CDescriptor;

/// Who is at the other end, as the kernel noted it when the two were connected.
struct SLocalPeer
{
    uint32_t dwUser = 0;
    uint32_t dwGroup = 0;
    int iProcess = 0;
};

/// A stream socket between two processes of this machine, which has a name in the file system (unix(7)).
///
/// Owned and used by one thread. Operations answer false or -1 and set LastError: SYS_TIMEOUT when the limit's time is
/// over, SYS_OPERATION_ABORTED when its stop ended the wait.
class CLocalSocket
{
public:
    CLocalSocket();
    ~CLocalSocket();
    CLocalSocket(CLocalSocket&& other) noexcept;
    CLocalSocket& operator=(CLocalSocket&& other) noexcept;

    /// SYS_FILE_NOT_FOUND: nothing has the name; SYS_CONNECTION_REFUSED: nobody listens under it any more;
    /// SYS_FILENAME_TOO_LONG: a path of more than 107 bytes.
    bool Connect(const char* pszPath, const CWaitLimit& limit);
    bool IsOpen() const;
    void Close();
    int64_t Receive(void* pBuffer, size_t nCount, const CWaitLimit& limit); ///< once; 0: the peer sends no more
    bool Send(std::string_view data, const CWaitLimit& limit);              ///< all of it
    bool ShutdownSending();
    bool Peer(SLocalPeer& peer) const;

private:
    friend class CLocalListener;

    bool Wait(short nEvents, const CWaitLimit& limit) const;

    std::unique_ptr<CDescriptor> m_pSocket;
};

} // namespace Platform
