#include "Control/CMetricsText.h"

#include "Control/SafeText.h"

#include <array>
#include <charconv>

namespace {

/// Of safe characters, so that only these two mean something else within quotation marks.
std::string Escaped(std::string_view text)
{
    std::string strEscaped;
    for (const char c : SafeText(text)) {
        if (c == '"' || c == '\\')
            strEscaped += '\\';
        strEscaped += c;
    }
    return strEscaped;
}

/// A bound is a number with a point, whole ones too.
std::string BoundText(double bound)
{
    std::string strText = CMetricsText::NumberText(bound);
    return strText.find_first_of(".e") == std::string::npos ? strText.append(".0") : strText;
}

} // namespace

std::string CMetricsText::NumberText(double value)
{
    std::array<char, 32> text;
    const auto [pEnd, error] = std::to_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() ? std::string(text.data(), pEnd) : "0";
}

void CMetricsText::Family(std::string_view name, const char* pszType, std::string_view help, std::string_view unit)
{
    m_strFamily = name;
    m_strText.append("# TYPE ").append(name).append(" ").append(pszType).append("\n");
    if (!unit.empty())
        m_strText.append("# UNIT ").append(name).append(" ").append(unit).append("\n");
    m_strText.append("# HELP ").append(name).append(" ").append(help).append("\n");
}

void CMetricsText::Sample(std::string_view suffix, double value)
{
    m_strText.append(m_strFamily).append(suffix).append(" ").append(NumberText(value)).append("\n");
}

void CMetricsText::Sample(std::string_view suffix, std::string_view label, std::string_view labelValue, double value)
{
    m_strText.append(m_strFamily).append(suffix).append("{").append(label).append("=\"").append(Escaped(labelValue));
    m_strText.append("\"} ").append(NumberText(value)).append("\n");
}

void CMetricsText::Histogram(const std::vector<double>& bounds, const std::vector<double>& counts, double sum)
{
    double count = 0; // so far
    for (size_t nBucket = 0; nBucket < counts.size(); ++nBucket) {
        count += counts[nBucket];
        Sample("_bucket", "le", nBucket < bounds.size() ? BoundText(bounds[nBucket]) : "+Inf", count);
    }
    Sample("_count", count);
    Sample("_sum", sum);
}

std::string CMetricsText::Finish() { return m_strText + "# EOF\n"; }
