#include "Control/CFindings.h"

#include <algorithm>
#include <map>
#include <utility>

namespace {

const char* NameOf(CFindings::ESeverity severity)
{
    return severity == CFindings::ESeverity::Error ? "error" : "warning";
}

std::string Counted(size_t nCount, const char* pszWhat)
{
    return std::to_string(nCount) + " " + pszWhat + (nCount == 1 ? "" : "s");
}

} // namespace

void CFindings::Error(SPlace place, std::string strText)
{
    m_findings.push_back({ESeverity::Error, std::move(place), std::move(strText)});
}

void CFindings::Warn(SPlace place, std::string strText)
{
    m_findings.push_back({ESeverity::Warning, std::move(place), std::move(strText)});
}

void CFindings::SortByLine()
{
    std::map<std::string, size_t> files;
    for (const SFinding& finding : m_findings)
        files.try_emplace(finding.place.strFile, files.size());
    std::ranges::stable_sort(m_findings, {}, [&](const SFinding& finding) {
        return std::pair(files[finding.place.strFile], finding.place.nLine);
    });
}

size_t CFindings::Count(ESeverity severity) const
{
    return static_cast<size_t>(std::ranges::count(m_findings, severity, &SFinding::severity));
}

std::string CFindings::Summary() const
{
    return Counted(Count(ESeverity::Error), "error") + ", " + Counted(Count(ESeverity::Warning), "warning");
}

void CFindings::Write(const CTerminal& terminal) const
{
    for (const SFinding& finding : m_findings) {
        const std::string strLine = finding.place.nLine != 0 ? std::to_string(finding.place.nLine) : "";
        terminal.Write(finding.place.strFile);
        terminal.Write(strLine.empty() ? "" : ":");
        terminal.Write(strLine);
        terminal.Write(": ");
        terminal.Write(std::string(NameOf(finding.severity)) + ":",
                       finding.severity == ESeverity::Error ? EStyle::Bad : EStyle::Warning);
        terminal.Line(" " + finding.strText);
    }
}

nlohmann::ordered_json CFindings::Json() const
{
    auto list = nlohmann::ordered_json::array();
    for (const SFinding& finding : m_findings) {
        nlohmann::ordered_json entry{{"severity", NameOf(finding.severity)}, {"file", finding.place.strFile}};
        if (finding.place.nLine != 0)
            entry["line"] = finding.place.nLine;
        entry["text"] = finding.strText;
        list.push_back(std::move(entry));
    }
    return list;
}

std::string Quoted(std::string_view text)
{
    std::string strQuoted = "\"";
    strQuoted.append(text).append("\"");
    return strQuoted;
}
