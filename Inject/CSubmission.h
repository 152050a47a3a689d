#pragma once

#include "Inject/CHeader.h"
#include "Inject/CQueueFile.h"
#include "Inject/CRefusal.h"
#include "Inject/SCommand.h"
#include "Inject/SSettings.h"

#include <set>

/// One mail on its way from standard input to the queue. Used by one thread; CRefusal when it cannot become one.
class CSubmission
{
public:
    CSubmission(const SCommand& command, const SSettings& settings);
    void Run();

private:
    void ReadHeader(CInput& input);
    void AddRecipients(const std::vector<std::string>& addresses, EExit ifInvalid);
    std::string Sender() const;
    std::string Author() const;
    void CopyBody(CInput& input);
    void WriteBody(std::string_view piece);

    const SCommand& m_command;
    const SSettings& m_settings;
    std::string m_strId;
    std::string m_strSender; ///< empty: the null sender
    std::string m_strRecipients;
    std::set<std::string> m_known; ///< the same ones
    size_t m_nRecipients = 0;
    CQueueFile m_file;
    uint64_t m_nBody = 0;       ///< bytes, with CR LF line ends at most
    bool m_bAtLineStart = true; ///< what is written next begins a line
    bool m_bAfterDot = false;   ///< the last line is a dot
};
