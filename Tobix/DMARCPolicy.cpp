#include "Tobix/DMARCPolicy.h"

#include "Bex/CResolver.h"
#include "Bex/TextFunctions.h"
#include "Common/CSilentPeers.h"
#include "Platform/Clock.h"

#include <algorithm>
#include <string_view>

namespace {

constexpr std::string_view VERSION = "v=DMARC1";
constexpr std::string_view POLICY_TAG = "p=";
constexpr char NO_POLICY[] = "none";
constexpr size_t LONGEST_DOMAIN = 253; // RFC 1035 2.3.4
constexpr long MOST_PARENT_LABELS = 7;
// Milliseconds.
constexpr uint64_t LONGEST_LOOKUP = 10'000; // from the first question about a domain to its last answer
constexpr uint64_t SILENCE_KEPT = 300'000;  // RFC 2308 7.2
constexpr uint64_t LONGEST_WAIT = 1000;     // in which nothing else is delivered
constexpr uint64_t SHORTEST_WAIT = 10;

std::optional<Bex::CSimpleString> PolicyOf(const Bex::CSimpleString& strText)
{
    if (!strText.View().starts_with(VERSION))
        return std::nullopt;
    Bex::CSimpleString strRecord(strText);
    strRecord.ReplaceAll("\\;", ";"); // as zone files are often written
    Bex::CList<Bex::CSimpleString> tags(false);
    Bex::Tokenize(strRecord, ";", tags, true);
    for (const Bex::CSimpleString& strTag : tags) {
        if (strTag.View().starts_with(POLICY_TAG))
            return strTag.SubString(static_cast<uint32_t>(POLICY_TAG.size()));
    }
    return std::nullopt;
}

} // namespace

std::vector<Bex::CSimpleString> DMARCNames(const Bex::CSimpleString& strDomain)
{
    std::vector<Bex::CSimpleString> names;
    if (strDomain.IsEmpty() || strDomain.Length() > LONGEST_DOMAIN)
        return names;
    std::string_view domain = strDomain;
    do {
        names.emplace_back("_dmarc.") += domain;
        do {
            domain.remove_prefix(std::min(domain.find('.'), domain.size() - 1) + 1);
        } while (std::count(domain.begin(), domain.end(), '.') >= MOST_PARENT_LABELS);
    } while (domain.find('.') != std::string_view::npos);
    return names;
}

Bex::CSimpleString FindDMARCPolicy(const Bex::CList<Bex::CSimpleString>& texts)
{
    for (const Bex::CSimpleString& strText : texts) {
        if (const auto strPolicy = PolicyOf(strText))
            return *strPolicy;
    }
    return NO_POLICY;
}

std::optional<Bex::CSimpleString> LookupDMARCPolicy(const Bex::CSimpleString& strDomain,
                                                    const Platform::CWaitLimit& stop,
                                                    const std::function<void()>& BeforeWaiting)
{
    static CSilentPeers unanswered;
    const Bex::CSimpleString strKey = strDomain.Lowered();
    const uint64_t ui64Left = unanswered.MillisLeft(strKey);
    if (ui64Left > 0 && ui64Left <= SILENCE_KEPT)
        return NO_POLICY;
    const Platform::CWaitLimit limit = stop.For(std::max(LONGEST_WAIT / (1 + unanswered.Count()), SHORTEST_WAIT));
    Bex::CList<Bex::CSimpleString> texts(false);
    for (const Bex::CSimpleString& strName : DMARCNames(strDomain)) {
        if (ui64Left > 0 && !Bex::CResolver::HasAnswerToTXT(strName, stop))
            return std::nullopt;
        // A failure counts as a name without records.
        if (Bex::CResolver::ResolveTXT(strName, texts, limit, BeforeWaiting) || limit.HasTimeLeft())
            continue;
        if (ui64Left == 0 && !stop.IsStopped())
            unanswered.Note(strKey, LONGEST_LOOKUP + SILENCE_KEPT);
        return std::nullopt;
    }
    if (stop.IsStopped())
        return std::nullopt;
    unanswered.Forget(strKey);
    return FindDMARCPolicy(texts);
}
