#include "Control/Status.h"

#include "Bex/CSimpleString.h"
#include "Control/CControlError.h"
#include "Control/CDaemon.h"
#include "Control/CTerminal.h"
#include "Control/Figures.h"
#include "Control/JsonFields.h"
#include "Control/LoadConfiguration.h"
#include "Platform/Clock.h"

#include <algorithm>

namespace {

using nlohmann::json;

void TellProcess(const CTerminal& terminal, const json& status)
{
    const int64_t iSince = NumberIn(status, "running_since");
    terminal.Field("version", TextIn(status, "version"));
    terminal.Field("process", std::to_string(NumberIn(status, "pid")));
    terminal.Field("running since", MomentText(iSince) + ", " + AgeText(Platform::NowSeconds() - iSince));
    if (FlagIn(status, "paused"))
        terminal.Field("paused", "no mail is taken up", EStyle::Warning);
    if (FlagIn(status, "low_space"))
        terminal.Field("low space", "no mail is taken from the queue until there is more", EStyle::Bad);
    if (const std::string strMissing = TextIn(status, "missing"); !strMissing.empty())
        terminal.Field("missing", strMissing, EStyle::Bad);
}

void TellMail(const CTerminal& terminal, const json& status)
{
    terminal.Field("queue", std::to_string(NumberIn(MemberIn(status, "queue"), "waiting")) + " waiting");
    const json& outgoing = MemberIn(status, "outgoing");
    const int64_t nWaiting = NumberIn(outgoing, "waiting");
    std::string strOutgoing = std::to_string(NumberIn(outgoing, "all")) + ", of them " +
                              std::to_string(NumberIn(outgoing, "sending")) + " sending, " + std::to_string(nWaiting) +
                              " waiting to be tried again";
    if (nWaiting > 0)
        strOutgoing += " in " + AgeText(NumberIn(outgoing, "next_release_in"));
    terminal.Field("outgoing", strOutgoing);
}

void TellTables(const CTerminal& terminal, const json& status)
{
    STable table{{{"TABLE"}, {"ENTRIES", true}, {"CHANGED"}, {"FILE"}}, {}};
    for (const json& one : MemberIn(status, "tables")) {
        const int64_t iChanged = NumberIn(one, "changed");
        table.rows.push_back({{TextIn(one, "name"), EStyle::Strong},
                              std::to_string(NumberIn(one, "entries")),
                              iChanged == 0 ? "-" : MomentText(iChanged),
                              TextIn(one, "file")});
    }
    terminal.Line();
    terminal.Table(table);
}

/// As the log has it.
std::string IdText(int64_t iId) { return Bex::CSimpleString::Formatted("%04X", static_cast<unsigned>(iId)).Text(); }

void TellThreads(const CTerminal& terminal, const json& status)
{
    STable table{{{"THREAD"}, {"ID", true}, {"FOR", true}, {"DOES"}}, {}};
    for (const json& one : MemberIn(status, "threads")) {
        const bool bStuck = FlagIn(one, "stuck");
        table.rows.push_back(
            {{TextIn(one, "name"), EStyle::Strong},
             IdText(NumberIn(one, "id")),
             AgeText(NumberIn(one, "seconds")),
             {TextIn(one, "step") + (bStuck ? ", and does not get on" : ""), bStuck ? EStyle::Bad : EStyle::Plain}});
    }
    terminal.Line();
    terminal.Table(table);
}

void TellCounters(const CTerminal& terminal, const json& status)
{
    STable table{{{"SINCE THE START"}, {"COUNT", true}}, {}};
    const json& counters = MemberIn(status, "counters");
    if (counters.is_object()) {
        for (const auto& [strName, value] : counters.items()) {
            std::string strShown = strName;
            std::ranges::replace(strShown, '_', ' ');
            table.rows.push_back({strShown, std::to_string(NumberIn(counters, strName.c_str()))});
        }
    }
    terminal.Line();
    terminal.Table(table);
}

bool IsWell(const json& status)
{
    const json& threads = MemberIn(status, "threads");
    return !FlagIn(status, "low_space") && TextIn(status, "missing").empty() &&
           std::none_of(threads.begin(), threads.end(), [](const json& one) { return FlagIn(one, "stuck"); });
}

} // namespace

int Status(const SOptions& options)
{
    LoadConfiguration(options);
    const json status = CDaemon::OfConfiguration().Ask({{"command", "status"}});
    const CTerminal terminal(options);
    if (terminal.IsJson()) {
        terminal.Json(nlohmann::ordered_json(status));
    } else {
        TellProcess(terminal, status);
        TellMail(terminal, status);
        TellTables(terminal, status);
        TellThreads(terminal, status);
        TellCounters(terminal, status);
    }
    return static_cast<int>(IsWell(status) ? EExit::Done : EExit::Wrong);
}
