#include "Tobix/CControlServer.h"

#include "Bex/CActivity.h"
#include "Bex/CException.h"
#include "Bex/Log.h"
#include "Platform/Errors.h"
#include "Platform/Process.h"

#include <array>
#include <exception>
#include <utility>

namespace {

constexpr unsigned PERMISSION = 0660;
constexpr int BACKLOG = 16;
constexpr unsigned NEXT_TRY_MILLIS = 1000;
constexpr uint64_t REQUEST_MILLIS = 2000; ///< so that one who says nothing does not keep the next for long
constexpr uint64_t ANSWER_MILLIS = 10'000;
constexpr size_t PIECE = 65'536;

} // namespace

CControlServer::CControlServer(const Bex::CSimpleString& strPath, std::function<std::string(const std::string&)> Answer)
    : m_strPath(strPath), m_Answer(std::move(Answer))
{}

void CControlServer::Body()
{
    while (ShallRun() && !m_bListens && !Listen())
        StopEvent().Wait(NEXT_TRY_MILLIS);
    while (ShallRun()) {
        Platform::CLocalSocket client;
        Bex::CActivity::Waits(Platform::INFINITE);
        if (m_listener.Accept(client, Platform::CWaitLimit(&StopEvent().Waitable())))
            Serve(client);
        else if (ShallRun()) // too few descriptors: it passes
            StopEvent().Wait(NEXT_TRY_MILLIS);
    }
    m_listener.Close();
}

bool CControlServer::Listen()
{
    m_bListens = m_listener.Listen(m_strPath.Text(), PERMISSION, BACKLOG);
    if (!m_bListens && !std::exchange(m_bFailureLogged, true)) {
        const Platform::SError error = Platform::LastError();
        Bex::LogError(Bex::MainLog(), "cannot take commands at \"%s\" (SysError=%d, LibError=%d)", m_strPath.Text(),
                      static_cast<int>(error.dwSysError), error.iLibError);
    }
    return m_bListens;
}

void CControlServer::Serve(Platform::CLocalSocket& client) const
{
    const Bex::CActivity::CStep step("answers a command");
    const Platform::CWaitLimit unlimited(&StopEvent().Waitable());
    std::string strRequest;
    if (!MayAsk(client) || !ReadRequest(client, unlimited.For(REQUEST_MILLIS), strRequest))
        return;
    std::string strAnswer;
    try {
        strAnswer = m_Answer(strRequest);
    } catch (const Bex::CException&) {
        strAnswer = R"({"error":"the command failed"})";
    } catch (const std::exception&) {
        strAnswer = R"({"error":"the command failed"})";
    }
    client.Send(strAnswer, unlimited.For(ANSWER_MILLIS)); // one who does not read it does not want it
}

bool CControlServer::MayAsk(const Platform::CLocalSocket& client)
{
    Platform::SLocalPeer peer;
    return client.Peer(peer) && (peer.dwUser == 0 || peer.dwUser == Platform::CurrentUserId());
}

/// Up to the end of the line, or of what the client sends.
bool CControlServer::ReadRequest(Platform::CLocalSocket& client, const Platform::CWaitLimit& limit,
                                 std::string& strRequest)
{
    std::array<char, PIECE> piece;
    while (strRequest.size() <= MOST_REQUEST_BYTES) {
        const int64_t nReceived = client.Receive(piece.data(), piece.size(), limit);
        if (nReceived < 0)
            return false;
        const std::string_view received(piece.data(), static_cast<size_t>(nReceived));
        const size_t nEnd = received.find('\n');
        strRequest.append(received.substr(0, nEnd));
        if (nReceived == 0 || nEnd != std::string_view::npos)
            return true;
    }
    return false;
}
