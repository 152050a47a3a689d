#pragma once

#include "Control/CTerminal.h"
#include "Control/EExit.h"

#include <string>
#include <utility>
#include <vector>

/// What became of each mail that a command was to do something with. One thread.
class COutcomes
{
public:
    void Done(const std::string& strMail) { m_done.push_back(strMail); }
    void Refused(const std::string& strMail, const std::string& strReason, EExit exit);

    /// Those that are done to standard output, behind the word for it; the others to standard error.
    void Write(const CTerminal& terminal, const char* pszDone) const;
    EExit Exit() const { return m_exit; } ///< Wrong counts for more than Refused

private:
    std::vector<std::string> m_done;
    std::vector<std::pair<std::string, std::string>> m_refused; ///< with the reasons
    EExit m_exit = EExit::Done;
};
