#pragma once

#include "Control/CTerminal.h"

#include <string>
#include <string_view>
#include <vector>

/// What a check has found. One thread.
class CFindings
{
public:
    enum class ESeverity {
        Error,  ///< the daemon does not start, or mail fails
        Warning ///< something has no effect, or another one than it seems
    };
    struct SPlace
    {
        std::string strFile;
        uint32_t nLine = 0; ///< from 1; 0: the file as a whole
    };

    void Error(SPlace place, std::string strText);
    void Warn(SPlace place, std::string strText);

    void SortByLine(); ///< within each file; the files in the order in which they came

    bool IsEmpty() const { return m_findings.empty(); }
    std::string Summary() const;                 ///< "2 errors, 1 warning"
    void Write(const CTerminal& terminal) const; ///< a line each: "FILE:LINE: error: TEXT"
    nlohmann::ordered_json Json() const;

private:
    struct SFinding
    {
        ESeverity severity;
        SPlace place;
        std::string strText;
    };

    size_t Count(ESeverity severity) const;

    std::vector<SFinding> m_findings;
};

/// A text between quotation marks, for a message.
std::string Quoted(std::string_view text);
