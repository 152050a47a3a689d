#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

/// The running daemon, as one request reaches it: one line of JSON goes over its socket, one JSON object comes back
/// until the end of the stream, at most 16 MiB of it.
///
/// An answer with a member "error" (text) tells that the command was refused or failed; its member "exit" is the exit
/// code, EExit::Wrong when missing. Used by one thread.
class CDaemon
{
public:
    explicit CDaemon(std::string strSocket) : m_strSocket(std::move(strSocket)) {}
    static CDaemon OfConfiguration(); ///< by `Control.Socket` of the configuration that is loaded

    /// Raises CControlError: NoDaemon when none can be reached, or none is configured; else what the answer says.
    nlohmann::json Ask(const nlohmann::json& request) const;
    /// The same, but nothing when no daemon listens. One that does not let us in, or answers nothing, still raises.
    std::optional<nlohmann::json> AskIfRunning(const nlohmann::json& request) const;

private:
    std::string m_strSocket; ///< empty: none
};
