#pragma once

#include "Bex/Log.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

/// Collects what goes to a log as "level text", for as long as it lives.
class CLogRecorder
{
public:
    explicit CLogRecorder(Bex::CLogPointer& log = Bex::MainLog()) : m_log(log) { m_log.Replace(m_pLines); }
    ~CLogRecorder() { m_log.Replace(nullptr); }
    CLogRecorder(const CLogRecorder&) = delete;
    CLogRecorder& operator=(const CLogRecorder&) = delete;

    std::vector<std::string> Lines() const
    {
        const std::lock_guard lock(m_pLines->m_mutex);
        return m_pLines->m_lines;
    }
    bool Contains(std::string_view text) const
    {
        return std::ranges::any_of(Lines(),
                                   [&](const std::string& strLine) { return strLine.find(text) != strLine.npos; });
    }
    void SetListener(std::function<void(const std::string&)> listener) ///< hears every line on its writer's thread
    {
        const std::lock_guard lock(m_pLines->m_mutex);
        m_pLines->m_listener = std::move(listener);
    }
    /// Moves out what came since the last call, each line with a line end.
    std::string Take()
    {
        const std::lock_guard lock(m_pLines->m_mutex);
        std::string strText;
        for (const std::string& strLine : m_pLines->m_lines)
            strText += strLine + "\n";
        m_pLines->m_lines.clear();
        return strText;
    }

private:
    struct SLines : Bex::ILogDestination
    {
        void Write(int iLevel, const char* pszText, unsigned) override
        {
            const std::lock_guard lock(m_mutex);
            m_lines.push_back(std::to_string(iLevel) + " " + pszText);
            if (m_listener)
                m_listener(m_lines.back());
        }
        void Flush() override {}
        std::mutex m_mutex;
        std::vector<std::string> m_lines;
        std::function<void(const std::string&)> m_listener;
    };
    Bex::CLogPointer& m_log;
    std::shared_ptr<SLines> m_pLines = std::make_shared<SLines>();
};
