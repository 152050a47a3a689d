#include "Control/CKnownMails.h"

#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Control/CDaemon.h"
#include "Control/CTerminal.h"
#include "Control/JsonFields.h"
#include "Platform/Clock.h"

namespace {

constexpr int DEPTH_OF_MAIL = 2; ///< {"outgoing":[{...
constexpr char CONSEQUENCE[] = "; the files tell what they can";

} // namespace

/// A million mails are never all there as JSON: each is taken out of the answer as soon as it has been read.
CKnownMails CKnownMails::Ask()
{
    CKnownMails known;
    const auto Take = [&known](int iDepth, nlohmann::json::parse_event_t event, nlohmann::json& value) {
        if (iDepth != DEPTH_OF_MAIL || event != nlohmann::json::parse_event_t::object_end)
            return true;
        known.m_mails[TextIn(value, "name")] = {TextIn(value, "state"), NumberIn(value, "attempts")};
        return false;
    };
    try {
        const std::optional<nlohmann::json> answer =
            CDaemon::OfConfiguration().AskIfRunning({{"command", "queue"}}, Take);
        if (answer) {
            known.m_bThere = true;
            known.m_iNow = Platform::NowSeconds();
            known.m_iNextRelease = known.m_iNow + NumberIn(*answer, "next_release_in");
            return known;
        }
        const bool bConfigured = !Config().GetPath(Keys::CONTROL_SOCKET).IsEmpty();
        CTerminal::Complain(std::string(bConfigured ? "no daemon runs" : "the configuration names no Control.Socket") +
                            CONSEQUENCE);
    } catch (const CControlError& error) {
        CTerminal::Complain(std::string(error.what()) + CONSEQUENCE);
    }
    return {};
}

const CKnownMails::SKnown* CKnownMails::Find(std::string_view name) const
{
    const auto found = m_mails.find(std::string(name));
    return found == m_mails.end() ? nullptr : &found->second;
}

std::optional<int64_t> CKnownMails::NextTry(const SKnown& known) const
{
    if (known.strState == "waiting")
        return m_iNextRelease;
    if (known.strState == "pending" || known.strState == "due" || known.strState == "held back")
        return m_iNow;
    return std::nullopt;
}
