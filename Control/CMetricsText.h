#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Samples as the text format of OpenMetrics has them. One thread.
class CMetricsText
{
public:
    /// The family of the samples that follow. The name ends in the unit, when there is one.
    void Family(std::string_view name, const char* pszType, std::string_view help, std::string_view unit = {});
    void Sample(std::string_view suffix, double value);
    void Sample(std::string_view suffix, std::string_view label, std::string_view labelValue, double value);
    /// One more count than there are bounds: of what lies beyond them.
    void Histogram(const std::vector<double>& bounds, const std::vector<double>& counts, double sum);
    std::string Finish(); ///< the text with its end

    static std::string NumberText(double value); ///< "5", "0.25"

private:
    std::string m_strFamily;
    std::string m_strText;
};
