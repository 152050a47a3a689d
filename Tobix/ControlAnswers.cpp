#include "Tobix/ControlAnswers.h"

#include "Bex/CActivity.h"
#include "Bex/TextFunctions.h"
#include "Common/CCommonService.h"
#include "Common/Statistics.h"
#include "Platform/Clock.h"
#include "Platform/FileIdentity.h"
#include "Platform/FileSystem.h"
#include "Platform/Process.h"
#include "Tobix/MailByHand.h"

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using nlohmann::json;

constexpr uint64_t MILLIS_PER_SECOND = 1000;
constexpr int64_t NANOSECONDS = 1'000'000'000;
constexpr double MICROS_PER_SECOND = 1e6;

json Error(const char* pszWhat) { return {{"error", pszWhat}}; }

const char* NameOf(COutgoingFiles::EState state)
{
    switch (state) {
    case COutgoingFiles::EState::Pending:
        return "pending";
    case COutgoingFiles::EState::RetryDue:
        return "due";
    case COutgoingFiles::EState::RetryWait:
        return "waiting";
    case COutgoingFiles::EState::Sending:
        return "sending";
    case COutgoingFiles::EState::HeldBack:
        return "held back";
    case COutgoingFiles::EState::Delivered:
        return "delivered";
    case COutgoingFiles::EState::NotDisposedOf:
        return "bounce failed";
    }
    return "";
}

json Tables(const SDaemonView& view)
{
    json tables = json::array();
    for (const STableView& table : view.tables) {
        Platform::SFileIdentity identity;
        const bool bThere = !table.strFile.empty() && Platform::IdentityOf(table.strFile.c_str(), identity);
        tables.push_back({{"name", table.pszName},
                          {"file", table.strFile},
                          {"entries", table.nEntries},
                          {"changed", bThere ? json(identity.iModified / NANOSECONDS) : json()}});
    }
    return tables;
}

json Threads()
{
    json threads = json::array();
    const uint64_t nNow = Platform::TickCount();
    for (const Bex::CActivity::SState& state : Bex::CActivity::List()) {
        threads.push_back({{"name", state.strThread},
                           {"id", state.dwThreadId},
                           {"step", state.strStep},
                           {"seconds", (nNow - state.nSinceTicks) / MILLIS_PER_SECOND},
                           {"stuck", state.bStuck}});
    }
    return threads;
}

json Counters()
{
    json counters = json::object();
    for (size_t n = 0; n < Statistics::COUNT_NAMES.size(); ++n)
        counters[Statistics::COUNT_NAMES[n]] = Statistics::CountOf(static_cast<Statistics::ECount>(n));
    return counters;
}

json Histograms()
{
    json histograms = json::object();
    for (size_t n = 0; n < Statistics::DURATION_NAMES.size(); ++n) {
        const auto histogram = Statistics::HistogramOf(static_cast<Statistics::EDuration>(n));
        json bounds = json::array();
        for (const uint64_t ui64Bound : Statistics::BOUNDS)
            bounds.push_back(static_cast<double>(ui64Bound) / MICROS_PER_SECOND);
        histograms[Statistics::DURATION_NAMES[n]] = {
            {"bounds", bounds},
            {"counts", histogram.counts},
            {"sum", static_cast<double>(histogram.ui64SumMicros) / MICROS_PER_SECOND}};
    }
    return histograms;
}

json Status(const SDaemonView& view)
{
    json outgoing = nullptr;
    if (view.pOutgoing) {
        const COutgoingFiles::SCounts counts = view.pOutgoing->Counts();
        outgoing = {{"all", counts.nAll},
                    {"sending", counts.nSending},
                    {"waiting", counts.nWaiting},
                    {"next_release_in", view.iNextReleaseIn}};
    }
    return {{"version", CCommonService::VersionText().Text()},
            {"pid", Platform::CurrentProcessId()},
            {"running_since", view.iRunningSince},
            {"paused", view.bPaused},
            {"low_space", view.bShortOfSpace},
            {"missing", view.strMissing},
            {"tables", Tables(view)},
            {"threads", Threads()},
            {"counters", Counters()},
            {"histograms", Histograms()},
            {"queue", {{"waiting", view.nQueue}}},
            {"outgoing", outgoing}};
}

/// So many are asked about at once: what one command takes does not grow with the queue.
const json& NamesIn(const json& request)
{
    const json& names = request.at("names");
    if (names.size() > MOST_NAMES_ASKED)
        throw std::length_error("names");
    return names;
}

json Queue(const json& request, const SDaemonView& view)
{
    json mails = json::array();
    for (const json& name : NamesIn(request)) {
        const std::string strName = name.get<std::string>();
        const auto mail = view.pOutgoing ? view.pOutgoing->Find(strName) : std::nullopt;
        if (mail)
            mails.push_back({{"name", strName},
                             {"state", NameOf(mail->state)},
                             {"attempts", mail->nAttempts},
                             {"seconds", mail->iSecondsKnown}});
    }
    return {{"outgoing", std::move(mails)}, {"next_release_in", view.iNextReleaseIn}};
}

const char* Refusal(COutgoingFiles::EAnswer answer)
{
    switch (answer) {
    case COutgoingFiles::EAnswer::Unknown:
        return UNKNOWN_MAIL;
    case COutgoingFiles::EAnswer::InDelivery:
        return IN_DELIVERY;
    case COutgoingFiles::EAnswer::Done:
        break;
    }
    return "";
}

/// The names that the request gives, and what became of each. The text is empty when it was done.
template <class TDo>
json ForEachName(const json& request, TDo Do)
{
    json done = json::array(), refused = json::object();
    for (const json& name : NamesIn(request)) {
        const std::string strName = name.get<std::string>();
        const std::string strRefusal = IsPlainMailName(strName) ? Do(strName) : "is no name of a mail";
        if (strRefusal.empty())
            done.push_back(strName);
        else
            refused[strName] = strRefusal;
    }
    return {{"done", done}, {"refused", refused}};
}

/// Those that are named, or the ones among them that wait.
json Retry(const json& request, COutgoingFiles& files)
{
    if (!request.value("waiting", false))
        return ForEachName(request, [&](const std::string& strName) { return Refusal(files.RetryNow(strName)); });
    json done = json::array();
    for (const json& name : NamesIn(request)) {
        const std::string strName = name.get<std::string>();
        const auto mail = files.Find(strName);
        const bool bWaits = mail && (mail->state == COutgoingFiles::EState::RetryWait ||
                                     mail->state == COutgoingFiles::EState::NotDisposedOf);
        if (bWaits && files.RetryNow(strName) == COutgoingFiles::EAnswer::Done)
            done.push_back(strName);
    }
    return {{"done", done}, {"refused", json::object()}};
}

/// What is done to a mail's file; the result is empty when it was done.
using CByHand = std::string (*)(std::string_view directory, std::string_view name);
std::string Hold(std::string_view directory, std::string_view name)
{
    return MarkByHand(directory, name, EMark::None, EMark::Held);
}
std::string Remove(std::string_view directory, std::string_view name)
{
    return RemoveByHand(directory, name, EMark::None);
}

/// The name leaves the lists first. What then cannot be done to the file leaves it as it was.
std::string ActOnOutgoing(const SDaemonView& view, const std::string& strName, CByHand Do)
{
    if (!view.pOutgoing)
        return Do(view.strOutgoingDirectory, strName);
    COutgoingFiles& files = *view.pOutgoing;
    const COutgoingFiles::EAnswer claim = files.Claim(strName);
    if (claim == COutgoingFiles::EAnswer::InDelivery)
        return Refusal(claim);
    std::string strRefusal = Do(view.strOutgoingDirectory, strName);
    const Bex::CSimpleString strPath = Bex::PathBelow(view.strOutgoingDirectory, strName);
    if (Platform::KindOf(strPath.Text(), false) == Platform::EPathKind::Missing)
        files.FinishDelivery(strName);
    else
        files.RetryNow(strName);
    return strRefusal;
}

json Act(const json& request, const SDaemonView& view, CByHand Do)
{
    const bool bQueue = request.value("directory", "") == "queue";
    return ForEachName(request, [&](const std::string& strName) {
        return bQueue ? Do(view.strQueueDirectory, strName) : ActOnOutgoing(view, strName, Do);
    });
}

json Answer(const json& request, const SDaemonHooks& hooks)
{
    const std::string strCommand = request.value("command", "");
    constexpr char NOT_NOW[] = "the daemon restarts or reads its tables; try again";
    if (strCommand == "rebuild-users") {
        const std::optional<bool> listed = hooks.RebuildUsers();
        if (!listed)
            return Error(NOT_NOW);
        return *listed ? json{{"done", true}} : Error("the users could not be listed");
    }
    SDaemonView view;
    if (!hooks.Look(view))
        return Error(NOT_NOW);
    if (strCommand == "status")
        return Status(view);
    if (strCommand == "queue")
        return Queue(request, view);
    if (strCommand == "hold")
        return Act(request, view, Hold);
    if (strCommand == "remove")
        return Act(request, view, Remove);
    if (strCommand != "retry" && strCommand != "bounce")
        return Error("unknown command");
    if (!view.pOutgoing)
        return Error("this daemon sends no mail (AutoTransport is off)");
    if (strCommand == "retry")
        return Retry(request, *view.pOutgoing);
    return ForEachName(request,
                       [&](const std::string& strName) { return Refusal(view.pOutgoing->ReturnNow(strName)); });
}

} // namespace

std::string AnswerCommand(const std::string& strRequest, const SDaemonHooks& hooks)
{
    json answer;
    try {
        const json request = json::parse(strRequest, nullptr, false);
        answer = request.is_object() ? Answer(request, hooks) : Error("no request");
    } catch (const std::length_error&) {
        answer = Error("the request names too many mails");
    } catch (const json::exception&) {
        answer = Error("a member of the request is missing, or of another kind");
    }
    return answer.dump(-1, ' ', false, json::error_handler_t::replace);
}
