#include "Control/CDaemon.h"

#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Platform/CLocalSocket.h"

#include <array>

namespace {

constexpr uint64_t CONNECT_MILLIS = 10'000;
constexpr uint64_t ANSWER_MILLIS = 120'000; ///< for the request and all of its answer
constexpr size_t MOST_ANSWER_BYTES = 16u << 20;
constexpr size_t PIECE = 65'536;

bool IsNobodyThere(Platform::SError error)
{
    return error.dwSysError == Platform::SYS_FILE_NOT_FOUND || error.dwSysError == Platform::SYS_PATH_NOT_FOUND ||
           error.dwSysError == Platform::SYS_CONNECTION_REFUSED;
}

[[noreturn]] void Fail(const std::string& strWhat, const std::string& strSocket)
{
    const std::string strReason = ErrorText(Platform::LastError());
    throw CControlError(EExit::NoDaemon, strWhat + " at " + strSocket + ": " + strReason);
}

std::string Exchange(Platform::CLocalSocket& socket, const std::string& strRequest, const std::string& strSocket)
{
    const Platform::CWaitLimit limit = Platform::CWaitLimit().For(ANSWER_MILLIS);
    if (!socket.Send(strRequest, limit) || !socket.ShutdownSending())
        Fail("cannot send to the daemon", strSocket);
    std::string strAnswer;
    std::array<char, PIECE> piece;
    for (;;) {
        const int64_t nReceived = socket.Receive(piece.data(), piece.size(), limit);
        if (nReceived < 0)
            Fail("cannot read the answer of the daemon", strSocket);
        if (nReceived == 0)
            return strAnswer;
        strAnswer.append(piece.data(), static_cast<size_t>(nReceived));
        if (strAnswer.size() > MOST_ANSWER_BYTES)
            throw CControlError(EExit::NoDaemon, "the answer of the daemon at " + strSocket + " has no end");
    }
}

EExit ExitOf(const nlohmann::json& answer)
{
    const auto exit = answer.find("exit");
    const bool bRefused = exit != answer.end() && exit->is_number_integer() &&
                          exit->get<int64_t>() == static_cast<int64_t>(EExit::Refused);
    return bRefused ? EExit::Refused : EExit::Wrong;
}

nlohmann::json Understand(const std::string& strAnswer, const std::string& strSocket)
{
    nlohmann::json answer = nlohmann::json::parse(strAnswer, nullptr, false);
    if (!answer.is_object())
        throw CControlError(EExit::NoDaemon, "what answers at " + strSocket + " is no daemon of this system");
    const auto error = answer.find("error");
    if (error != answer.end())
        throw CControlError(ExitOf(answer), error->is_string() ? error->get<std::string>() : error->dump());
    return answer;
}

} // namespace

CDaemon CDaemon::OfConfiguration() { return CDaemon(Config().GetPath(Keys::CONTROL_SOCKET).Text()); }

std::optional<nlohmann::json> CDaemon::AskIfRunning(const nlohmann::json& request) const
{
    if (m_strSocket.empty())
        return std::nullopt;
    Platform::CLocalSocket socket;
    if (!socket.Connect(m_strSocket.c_str(), Platform::CWaitLimit().For(CONNECT_MILLIS))) {
        if (IsNobodyThere(Platform::LastError()))
            return std::nullopt;
        Fail("cannot reach the daemon", m_strSocket);
    }
    using EHandler = nlohmann::json::error_handler_t;
    const std::string strRequest = request.dump(-1, ' ', false, EHandler::replace) + "\n";
    return Understand(Exchange(socket, strRequest, m_strSocket), m_strSocket);
}

nlohmann::json CDaemon::Ask(const nlohmann::json& request) const
{
    if (m_strSocket.empty())
        throw CControlError(EExit::NoDaemon, "the configuration names no Control.Socket, by which the daemon is asked");
    std::optional<nlohmann::json> answer = AskIfRunning(request);
    if (!answer)
        throw CControlError(EExit::NoDaemon, "no daemon listens at " + m_strSocket);
    return std::move(*answer);
}
