#include "Control/CKnownMails.h"

#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Control/CDaemon.h"
#include "Control/CTerminal.h"
#include "Control/JsonFields.h"
#include "Platform/Clock.h"

void CKnownMails::Ask(std::span<const SWaitingMail> mails)
{
    m_mails.clear();
    std::vector<std::string> names;
    for (const SWaitingMail& mail : mails) {
        if (mail.name.place == EPlace::Outgoing && mail.name.mark == EMark::None && mail.name.CanBeTold())
            names.push_back(mail.name.strName);
    }
    const std::optional<nlohmann::json> answer = m_bGivenUp || names.empty() ? std::nullopt : Answer(names);
    if (!answer)
        return;
    for (const nlohmann::json& mail : MemberIn(*answer, "outgoing"))
        m_mails[TextIn(mail, "name")] = {TextIn(mail, "state"), NumberIn(mail, "attempts")};
    m_iNow = Platform::NowSeconds();
    m_iNextRelease = m_iNow + NumberIn(*answer, "next_release_in");
}

std::optional<nlohmann::json> CKnownMails::Answer(const std::vector<std::string>& names)
{
    const bool bConfigured = !Config().GetPath(Keys::CONTROL_SOCKET).IsEmpty();
    std::string strWhy = bConfigured ? "no daemon runs" : "the configuration names no Control.Socket";
    try {
        const nlohmann::json request{{"command", "queue"}, {"names", names}};
        if (auto answer = CDaemon::OfConfiguration().AskIfRunning(request))
            return answer;
    } catch (const CControlError& error) {
        strWhy = error.what();
    }
    CTerminal::Complain(strWhy + "; the files tell what they can");
    m_bGivenUp = true;
    return std::nullopt;
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
