#include "Control/AliasSteps.h"

#include "Bex/TextFunctions.h"
#include "Common/CDomains.h"

#include <algorithm>

namespace {

constexpr size_t MOST_STEPS = 1000; // of a chain that no person made

/// Only an address at a local domain is looked up again.
bool LeadsOn(const Bex::CSimpleString& strTarget) { return strTarget.Contains('@') && IsLocalAddress(strTarget); }

} // namespace

SAliasWay AliasWay(CAliases& plain, const Bex::CSimpleString& strAddress)
{
    SAliasWay way;
    Bex::CSimpleString strNext = strAddress;
    do {
        CAliases::SStep step = plain.Step(strNext);
        way.bCircle = !step.strKey.IsEmpty() &&
                      std::ranges::any_of(way.steps, [&](const auto& past) { return past.strKey == step.strKey; });
        if (way.bCircle)
            break;
        strNext = step.strTarget;
        way.steps.push_back(std::move(step));
    } while (LeadsOn(strNext) && way.steps.size() < MOST_STEPS);
    return way;
}

std::string SAliasWay::Text(const Bex::CSimpleString& strAddress) const
{
    std::string strText = strAddress.Text();
    for (const CAliases::SStep& step : steps)
        strText.append(" -> ").append(step.strTarget.IsEmpty() ? "nowhere" : step.strTarget.Text());
    return strText;
}
