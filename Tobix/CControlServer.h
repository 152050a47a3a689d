#pragma once

#include "Bex/CSimpleString.h"
#include "Bex/CThread.h"
#include "Platform/CLocalListener.h"

#include <functional>
#include <string>

/// The thread that answers an administrator's commands on a socket of this machine: one line of JSON in, one JSON
/// object out, then the connection ends. One client at a time, and each has a few seconds; delivery does not wait for
/// any of them. Owned by the service.
///
/// Who may connect is the socket's permission; of these the superuser and the service's own user are answered.
class CControlServer : public Bex::CThread
{
public:
    /// Answer is called on this thread, with the request's line.
    CControlServer(const Bex::CSimpleString& strPath, std::function<std::string(const std::string&)> Answer);
    ~CControlServer() override = default;

    /// From then on clients are taken, to be served as soon as the thread runs. False, and told in the log: the thread
    /// tries again. Before Start.
    bool Listen();

    static constexpr size_t MOST_REQUEST_BYTES = 2u << 20; ///< many names

protected:
    void Body() override;

private:
    void Serve(Platform::CLocalSocket& client) const;
    static bool MayAsk(const Platform::CLocalSocket& client);
    static bool ReadRequest(Platform::CLocalSocket& client, const Platform::CWaitLimit& limit, std::string& strRequest);

    Bex::CSimpleString m_strPath;
    std::function<std::string(const std::string&)> m_Answer;
    Platform::CLocalListener m_listener;
    bool m_bListens = false;
    bool m_bFailureLogged = false;
};
