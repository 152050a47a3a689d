#include "Tobix/DMARCPolicy.h"

#include "Bex/CResolver.h"
#include "Bex/TextFunctions.h"
#include "Common/CSilentPeers.h"
#include "Platform/Clock.h"

#include <algorithm>
#include <atomic>
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
constexpr uint64_t LONGEST_WAIT = 500;      // in which nothing else is delivered
constexpr uint64_t SHORTEST_WAIT = 10;
constexpr uint64_t MOST_SAVED = 50'000; // of which a tenth may be waited at a stretch
constexpr uint64_t REST_AND_WAIT = 10;

/// Lets a tenth of the time pass in waiting, whatever strangers make of it. Any thread.
class CWaitBudget
{
public:
    uint64_t Millis() const
    {
        const uint64_t ui64Now = Platform::TickCount();
        const uint64_t ui64Owed = m_ui64PaidTicks - std::min<uint64_t>(m_ui64PaidTicks, ui64Now);
        const uint64_t ui64Left = (MOST_SAVED - std::min(ui64Owed, MOST_SAVED)) / REST_AND_WAIT;
        return std::clamp(ui64Left, SHORTEST_WAIT, LONGEST_WAIT);
    }
    void SpendSince(uint64_t ui64Ticks)
    {
        const uint64_t ui64Now = Platform::TickCount();
        m_ui64PaidTicks = std::max<uint64_t>(m_ui64PaidTicks, ui64Now) + REST_AND_WAIT * (ui64Now - ui64Ticks);
    }

private:
    std::atomic<uint64_t> m_ui64PaidTicks = 0; ///< when all that was waited has its rest
};

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

using CTexts = Bex::CList<Bex::CSimpleString>;

/// Nothing while an answer is on its way; what was asked for before is not waited for.
std::optional<CTexts> AskFor(const Bex::CSimpleString& strDomain, const Platform::CWaitLimit& limit, bool bAskedBefore,
                             const std::function<void()>& BeforeWaiting)
{
    CTexts texts(false);
    for (const Bex::CSimpleString& strName : DMARCNames(strDomain)) {
        if (bAskedBefore && !Bex::CResolver::HasAnswerToTXT(strName, limit))
            return std::nullopt;
        // A failure counts as a name without records.
        if (!Bex::CResolver::ResolveTXT(strName, texts, limit, BeforeWaiting) && !limit.HasTimeLeft())
            return std::nullopt;
    }
    return texts;
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
    static CWaitBudget budget;
    const Bex::CSimpleString strKey = strDomain.Lowered();
    const uint64_t ui64Left = unanswered.MillisLeft(strKey);
    if (ui64Left > 0 && ui64Left <= SILENCE_KEPT)
        return NO_POLICY;
    const uint64_t ui64Started = Platform::TickCount();
    const auto texts = AskFor(strDomain, stop.For(budget.Millis()), ui64Left > 0, BeforeWaiting);
    budget.SpendSince(ui64Started);
    if (stop.IsStopped())
        return std::nullopt;
    if (texts)
        unanswered.Forget(strKey);
    else if (ui64Left == 0)
        unanswered.Note(strKey, LONGEST_LOOKUP + SILENCE_KEPT);
    return texts ? std::optional(FindDMARCPolicy(*texts)) : std::nullopt;
}
