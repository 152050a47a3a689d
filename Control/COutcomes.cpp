#include "Control/COutcomes.h"

void COutcomes::Refused(const std::string& strMail, const std::string& strReason, EExit exit)
{
    m_refused.emplace_back(strMail, strReason);
    if (m_exit != EExit::Wrong)
        m_exit = exit;
}

void COutcomes::Write(const CTerminal& terminal, const char* pszDone) const
{
    if (terminal.IsJson()) {
        auto refused = nlohmann::ordered_json::array();
        for (const auto& [strMail, strReason] : m_refused)
            refused.push_back({{"mail", strMail}, {"reason", strReason}});
        terminal.Json({{"done", m_done}, {"refused", std::move(refused)}});
        return;
    }
    for (const std::string& strMail : m_done)
        terminal.Line(std::string(pszDone) + " " + strMail);
    for (const auto& [strMail, strReason] : m_refused)
        CTerminal::Complain(std::string(strMail).append(": ").append(strReason));
    if (m_done.empty() && m_refused.empty())
        terminal.Line("no such mail waits");
}
