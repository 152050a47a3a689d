#pragma once

#include "Bex/CSimpleString.h"
#include "Control/CTerminal.h"

#include <string>
#include <utility>
#include <vector>

/// An answer that grows fact by fact, for people and as JSON. One thread.
class CRouteAnswer
{
public:
    /// A fact for people only.
    void Say(const char* pszName, std::string strText, EStyle style = EStyle::Plain)
    {
        m_lines.push_back({pszName, std::move(strText), style});
    }
    /// A fact for programs only.
    void Set(const char* pszKey, nlohmann::ordered_json value) { m_json[pszKey] = std::move(value); }
    /// A fact for both.
    void Tell(const char* pszKey, const char* pszName, const std::string& strText, EStyle style = EStyle::Plain)
    {
        Set(pszKey, strText);
        Say(pszName, strText, style);
    }
    /// The same, with words before the value that only people need.
    void TellWith(const char* pszKey, const char* pszName, const char* pszWords, const Bex::CSimpleString& strValue)
    {
        Set(pszKey, strValue.Text());
        Say(pszName, std::string(pszWords) + strValue.Text());
    }
    void Fail(const std::string& strWhy) ///< the mail would fail, or wait
    {
        m_bFails = true;
        Tell("failure", "fails", strWhy, EStyle::Bad);
    }
    bool Fails() const { return m_bFails; }

    void Write(const CTerminal& terminal) const
    {
        if (terminal.IsJson()) {
            terminal.Json(m_json);
            return;
        }
        for (const SLine& line : m_lines)
            terminal.Field(line.pszName, line.strText, line.look);
    }

private:
    struct SLine
    {
        const char* pszName;
        std::string strText;
        EStyle look;
    };

    std::vector<SLine> m_lines;
    nlohmann::ordered_json m_json = nlohmann::ordered_json::object();
    bool m_bFails = false;
};
