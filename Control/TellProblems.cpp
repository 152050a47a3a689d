#include "Control/TellProblems.h"

#include "Bex/TextFunctions.h"

#include <algorithm>
#include <cstdlib>
#include <numeric>

namespace {

constexpr size_t MOST_SLIPS = 2; ///< of a finger, between what was written and what was meant
constexpr size_t LONGEST_COMPARED = 64;

/// How many letters have to be put in, left out or changed (Levenshtein), whatever their case.
size_t Slips(std::string_view a, std::string_view b)
{
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t nDiagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t nChanged = nDiagonal + (Bex::LowerAscii(a[i]) == Bex::LowerAscii(b[j]) ? 0 : 1);
            nDiagonal = row[j + 1];
            row[j + 1] = std::min({nChanged, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row[b.size()];
}

std::string Hint(std::string_view key, std::span<const Bex::SConfigKey> table)
{
    if (key.size() > LONGEST_COMPARED || table.empty())
        return {};
    const auto SlipsTo = [key](const Bex::SConfigKey& known) { return Slips(key, known.pszName); };
    const auto nearest = std::ranges::min_element(table, {}, SlipsTo);
    return SlipsTo(*nearest) <= MOST_SLIPS ? std::string("; is ") + nearest->pszName + " meant?" : "";
}

std::string TextOf(const CConfigCheck& config, const CConfigCheck::SProblem& problem,
                   std::span<const Bex::SConfigKey> table)
{
    using enum CConfigCheck::EProblem;
    const std::string strKey = problem.strKey.Text();
    switch (problem.problem) {
    case UnknownKey:
        return "there is no key " + Quoted(strKey) + Hint(strKey, table);
    case SecondKey:
        return strKey + " has a value already, in line " + std::to_string(config.LineOf(strKey)) + ", which counts";
    case NoPair:
        return Quoted(strKey) + " has no effect: a line is \"Key: value\"";
    case NoNumber:
        break;
    }
    return strKey + ": " + Quoted(problem.strValue) + " is no number, and counts as " +
           std::to_string(config.GetInt(strKey.c_str(), 0));
}

} // namespace

void TellProblems(const CConfigCheck& config, std::span<const Bex::SConfigKey> table, CFindings& findings)
{
    for (const CConfigCheck::SProblem& problem : config.Problems())
        findings.Warn({config.FileName().Text(), problem.nLine}, TextOf(config, problem, table));
}
