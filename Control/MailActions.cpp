#include "Control/MailActions.h"

#include "Control/AskYesNo.h"
#include "Control/CControlError.h"
#include "Control/CDaemon.h"
#include "Control/COutcomes.h"
#include "Control/JsonFields.h"
#include "Control/LoadConfiguration.h"
#include "Control/SWaitingMail.h"
#include "Platform/CDirectoryClaim.h"
#include "Tobix/ControlAnswers.h"

#include <algorithm>
#include <set>
#include <utility>

namespace {

constexpr size_t NAMES_PER_REQUEST = 100;
constexpr EMark UNMARKED[] = {EMark::None};
constexpr EMark HELD[] = {EMark::Held};
constexpr EMark ANY_MARK[] = {EMark::None, EMark::Held, EMark::Failed};
constexpr EPlace OUTGOING[] = {EPlace::Outgoing};

/// What a command does with whose mail.
struct SAction
{
    const char* pszCommand; ///< as the daemon knows it
    const char* pszDone;
    std::span<const EPlace> places;
    std::span<const EMark> marks;
};
constexpr SAction RETRY{"retry", "tries now", OUTGOING, UNMARKED};
constexpr SAction HOLD{"hold", "holds", PLACES, UNMARKED};
constexpr SAction RELEASE{"", "released", PLACES, HELD};
constexpr SAction BOUNCE{"bounce", "bounces", OUTGOING, UNMARKED};
constexpr SAction REMOVE{"remove", "removed", PLACES, ANY_MARK};

using CNames = std::vector<SMailName>;

/// Names that lead to nothing do not keep the others from being found; CControlError when none leads anywhere.
CNames ByNames(const SMailSelection& selection, const SAction& action, COutcomes& outcomes)
{
    CNames found;
    for (const std::string& strName : selection.names) {
        try {
            SMailName name = SMailName::Given(strName, action.places, action.marks);
            const auto IsSame = [&](const SMailName& other) { return other.Shown() == name.Shown(); };
            if (std::ranges::none_of(found, IsSame))
                found.push_back(std::move(name));
        } catch (const CControlError& error) {
            if (selection.names.size() == 1)
                throw;
            outcomes.Refused(strName, error.what(), EExit::Wrong);
        }
    }
    return found;
}

CNames ByPattern(const SMailSelection& selection, const SAction& action)
{
    CNames found;
    for (const EPlace place : action.places) {
        ForEachWaiting(place, {.strFrom = selection.strFrom, .strTo = selection.strTo}, [&](const SWaitingMail& mail) {
            if (std::ranges::find(action.marks, mail.name.mark) != action.marks.end())
                found.push_back(mail.name);
            return true;
        });
    }
    return found;
}

/// Exactly one way to say which mail is meant, so that a slip of the keyboard means nothing.
CNames Select(const SMailSelection& selection, const SAction& action, COutcomes& outcomes)
{
    const bool bPattern = !selection.strFrom.empty() || !selection.strTo.empty();
    const int iWays = (selection.names.empty() ? 0 : 1) + (bPattern ? 1 : 0) + (selection.bAll ? 1 : 0);
    if (iWays != 1)
        throw CControlError(EExit::Misused, "which mail? either names, or patterns, or all; see --help");
    return selection.names.empty() ? ByPattern(selection, action) : ByNames(selection, action, outcomes);
}

/// A mail that somebody has may be free later, and a name that is taken, too.
void TakeResult(const std::string& strMail, const std::string& strRefusal, COutcomes& outcomes)
{
    const bool bNotNow = strRefusal == IN_DELIVERY || strRefusal == NAME_TAKEN;
    if (strRefusal.empty())
        outcomes.Done(strMail);
    else
        outcomes.Refused(strMail, strRefusal, bNotNow ? EExit::Refused : EExit::Wrong);
}

/// What the daemon says of some mails; of those of which it says nothing that is told, too.
void TakeAnswer(const nlohmann::json& answer, std::span<const SMailName> asked, COutcomes& outcomes)
{
    std::set<std::string> done;
    for (const nlohmann::json& name : MemberIn(answer, "done")) {
        if (name.is_string())
            done.insert(name.get<std::string>());
    }
    const nlohmann::json& refused = MemberIn(answer, "refused");
    for (const SMailName& name : asked) {
        const std::string strReason = TextIn(refused, name.strName.c_str());
        const bool bToldOf = done.contains(name.strName) || !strReason.empty();
        const std::string strSilence = name.CanBeTold()
                                           ? "the daemon's answer says nothing of it"
                                           : "its name is not UTF-8, and cannot be told the daemon: rename it";
        TakeResult(name.Shown(), bToldOf ? strReason : strSilence, outcomes);
    }
}

void Mark(const SMailName& name, EMark mark, COutcomes& outcomes)
{
    TakeResult(SMailName{name.place, EMark::None, name.strName}.Shown(),
               MarkByHand(PlaceDirectory(name.place), name.strName, name.mark, mark), outcomes);
}

void RemoveFile(const SMailName& name, COutcomes& outcomes)
{
    TakeResult(name.Shown(), RemoveByHand(PlaceDirectory(name.place), name.strName, name.mark), outcomes);
}

/// As the daemon would, which does not run and cannot start meanwhile.
void WithoutDaemon(std::span<const SMailName> names, const SAction& action, COutcomes& outcomes)
{
    const Bex::CSimpleString strDirectory = PlaceDirectory(names.front().place);
    Platform::CDirectoryClaim claim;
    if (!claim.TakeExclusive(strDirectory.Text())) {
        const std::string strHolder = std::to_string(claim.Holder());
        for (const SMailName& name : names)
            outcomes.Refused(name.Shown(),
                             "process " + strHolder + " runs on the directory, but cannot be asked: Control.Socket",
                             EExit::Refused);
        return;
    }
    for (const SMailName& name : names) {
        if (&action == &REMOVE)
            RemoveFile(name, outcomes);
        else
            Mark(name, EMark::Held, outcomes);
    }
}

/// Whoever gave the order learns what was done before a daemon failed.
void AskAbout(std::span<const SMailName> names, const SAction& action, COutcomes& outcomes)
{
    auto texts = nlohmann::json::array();
    for (const SMailName& name : names) {
        if (name.CanBeTold())
            texts.push_back(name.strName);
    }
    try {
        const nlohmann::json request{
            {"command", action.pszCommand}, {"directory", PlaceName(names.front().place)}, {"names", std::move(texts)}};
        const CDaemon daemon = CDaemon::OfConfiguration();
        const bool bPossibleWithout = &action == &HOLD || &action == &REMOVE;
        const std::optional<nlohmann::json> answer =
            bPossibleWithout ? daemon.AskIfRunning(request) : daemon.Ask(request);
        if (answer)
            TakeAnswer(*answer, names, outcomes);
        else
            WithoutDaemon(names, action, outcomes);
    } catch (const CControlError& error) {
        for (const SMailName& name : names)
            outcomes.Refused(name.Shown(), error.what(), error.Exit());
    }
}

/// Asks the daemon some names at a time: neither has to take in very much.
void ByDaemon(const CNames& names, const SAction& action, COutcomes& outcomes)
{
    for (const EPlace place : PLACES) {
        CNames ofPlace;
        std::ranges::copy_if(names, std::back_inserter(ofPlace),
                             [place](const auto& name) { return name.place == place; });
        for (size_t nFirst = 0; nFirst < ofPlace.size(); nFirst += NAMES_PER_REQUEST) {
            const size_t nCount = std::min(NAMES_PER_REQUEST, ofPlace.size() - nFirst);
            AskAbout({ofPlace.data() + nFirst, nCount}, action, outcomes);
        }
    }
}

/// Those that do not wait are tried anyway.
void RetryWaiting(const std::vector<std::string>& names, COutcomes& outcomes)
{
    const nlohmann::json answer =
        CDaemon::OfConfiguration().Ask({{"command", "retry"}, {"names", names}, {"waiting", true}});
    for (const nlohmann::json& name : MemberIn(answer, "done")) {
        if (name.is_string())
            outcomes.Done(SMailName{EPlace::Outgoing, EMark::None, name.get<std::string>()}.Shown());
    }
}

int Finish(const SOptions& options, const SAction& action, const COutcomes& outcomes)
{
    outcomes.Write(CTerminal(options), action.pszDone);
    return static_cast<int>(outcomes.Exit());
}

int Act(const SOptions& options, const SMailSelection& selection, const SAction& action)
{
    LoadConfiguration(options);
    COutcomes outcomes;
    ByDaemon(Select(selection, action, outcomes), action, outcomes);
    return Finish(options, action, outcomes);
}

} // namespace

int RetryMail(const SOptions& options, const SMailSelection& selection)
{
    if (!selection.bAll)
        return Act(options, selection, RETRY);
    COutcomes outcomes;
    if (!selection.names.empty() || !selection.strTo.empty())
        Select(selection, RETRY, outcomes); // which raises
    LoadConfiguration(options);
    std::vector<std::string> names;
    ForEachMailFile(EPlace::Outgoing, [&](const SMailName& name) {
        if (name.mark == EMark::None && name.CanBeTold())
            names.push_back(name.strName);
        if (names.size() == MOST_NAMES_ASKED)
            RetryWaiting(std::exchange(names, {}), outcomes);
        return true;
    });
    RetryWaiting(names, outcomes);
    return Finish(options, RETRY, outcomes);
}

int HoldMail(const SOptions& options, const SMailSelection& selection) { return Act(options, selection, HOLD); }

int BounceMail(const SOptions& options, const SMailSelection& selection) { return Act(options, selection, BOUNCE); }

int ReleaseMail(const SOptions& options, const SMailSelection& selection)
{
    LoadConfiguration(options);
    COutcomes outcomes;
    for (const SMailName& name : Select(selection, RELEASE, outcomes))
        Mark(name, EMark::None, outcomes);
    return Finish(options, RELEASE, outcomes);
}

int RemoveMail(const SOptions& options, const SMailSelection& selection)
{
    LoadConfiguration(options);
    COutcomes outcomes;
    CNames names = Select(selection, REMOVE, outcomes);
    const std::string strWhat = names.size() == 1 ? names.front().Shown() : std::to_string(names.size()) + " mails";
    if (!selection.bConfirmed && !names.empty())
        AskYesNo(CTerminal(options), "Remove " + strWhat + " for good?", "say --yes");
    const auto firstMarked =
        std::stable_partition(names.begin(), names.end(), [](const auto& name) { return name.mark == EMark::None; });
    std::for_each(firstMarked, names.end(), [&](const SMailName& name) { RemoveFile(name, outcomes); });
    names.erase(firstMarked, names.end());
    ByDaemon(names, REMOVE, outcomes);
    return Finish(options, REMOVE, outcomes);
}
