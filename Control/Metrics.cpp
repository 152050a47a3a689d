#include "Control/Metrics.h"

#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Control/CDaemon.h"
#include "Control/CMetricsText.h"
#include "Control/CTerminal.h"
#include "Control/JsonFields.h"
#include "Control/LoadConfiguration.h"
#include "Control/SMailName.h"
#include "Platform/CDirectoryListing.h"
#include "Platform/CTemporaryFile.h"
#include "Platform/Clock.h"
#include "Platform/FileSystem.h"

#include <algorithm>

namespace {

using nlohmann::json;

constexpr int64_t NANOSECONDS = 1'000'000'000;
constexpr unsigned FOR_EVERYBODY = 0644; ///< whoever collects such files is another user
constexpr char GAUGE[] = "gauge";

/// A counter of the daemon, as a sample of a family; those of one family stand together.
struct SCounter
{
    const char* pszKey;
    const char* pszFamily;
    const char* pszHelp;
    const char* pszLabel = "";
    const char* pszLabelValue = "";
};
constexpr SCounter COUNTERS[] = {
    {"local_mails", "tobix_local_mails", "Mails taken from the queue directory."},
    {"local_copies", "tobix_local_copies", "Copies stored in mailboxes."},
    {"outgoing_copies", "tobix_outgoing_copies", "Copies stored in the outgoing directory."},
    {"filtered", "tobix_filtered", "Mails kept back by the content filters."},
    {"local_failed", "tobix_local_failed", "Mails moved from the queue directory to the error directory."},
    {"loops_ended", "tobix_loops_ended", "Those of them that had gone round."},
    {"remote_delivered", "tobix_remote_delivered", "Outgoing mails that another server has taken."},
    {"remote_deferred", "tobix_remote_deferred", "Attempts after which an outgoing mail waits for the next one."},
    {"bounced_4xx", "tobix_bounced", "Outgoing mails given up, by the class of the last reply.", "class", "4xx"},
    {"bounced_5xx", "tobix_bounced", "", "class", "5xx"},
    {"remote_failed", "tobix_remote_failed", "Outgoing mails moved to the error directory."},
    {"sessions", "tobix_sessions", "SMTP sessions with other servers."},
    {"sessions_tls", "tobix_sessions_tls", "Those of them that were encrypted."},
};
constexpr struct
{
    const char* pszKey;
    const char* pszFamily;
    const char* pszHelp;
} HISTOGRAMS[] = {
    {"attempt_seconds", "tobix_attempt_seconds", "How long attempts to send took."},
    {"local_mail_seconds", "tobix_local_mail_seconds", "How long mails from the queue directory took."},
};

void TellCounters(const json& counters, CMetricsText& text)
{
    std::string_view family;
    for (const SCounter& counter : COUNTERS) {
        if (family != counter.pszFamily)
            text.Family(counter.pszFamily, "counter", counter.pszHelp);
        family = counter.pszFamily;
        const double value = std::max(0.0, RealIn(counters, counter.pszKey));
        if (*counter.pszLabel == '\0')
            text.Sample("_total", value);
        else
            text.Sample("_total", counter.pszLabel, counter.pszLabelValue, value);
    }
}

std::vector<double> NumbersIn(const json& object, const char* pszName)
{
    std::vector<double> numbers;
    for (const json& number : MemberIn(object, pszName))
        numbers.push_back(number.is_number() ? number.get<double>() : 0);
    return numbers;
}

void TellHistograms(const json& histograms, CMetricsText& text)
{
    for (const auto& known : HISTOGRAMS) {
        const json& histogram = MemberIn(histograms, known.pszKey);
        const std::vector<double> bounds = NumbersIn(histogram, "bounds");
        const std::vector<double> counts = NumbersIn(histogram, "counts");
        if (counts.size() != bounds.size() + 1 || !std::ranges::is_sorted(bounds))
            continue;
        text.Family(known.pszFamily, "histogram", known.pszHelp, "seconds");
        text.Histogram(bounds, counts, RealIn(histogram, "sum"));
    }
}

void TellTables(const json& tables, CMetricsText& text)
{
    text.Family("tobix_table_entries", GAUGE, "Entries of a table.");
    for (const json& table : tables)
        text.Sample("", "table", TextIn(table, "name"), RealIn(table, "entries"));
    text.Family("tobix_table_changed_timestamp_seconds", GAUGE, "When a table's file was changed last.", "seconds");
    for (const json& table : tables)
        text.Sample("", "table", TextIn(table, "name"), RealIn(table, "changed"));
}

void TellDaemon(const json& status, CMetricsText& text)
{
    const auto Gauge = [&text](const char* pszFamily, const char* pszHelp, double value, const char* pszUnit = "") {
        text.Family(pszFamily, GAUGE, pszHelp, pszUnit);
        text.Sample("", value);
    };
    text.Family("tobix_build_info", GAUGE, "The version of the running daemon.");
    text.Sample("", "version", TextIn(status, "version"), 1);
    Gauge("tobix_start_time_seconds", "When the daemon was started.", RealIn(status, "running_since"), "seconds");
    Gauge("tobix_paused", "1 while it takes up no mail.", FlagIn(status, "paused") ? 1 : 0);
    Gauge("tobix_low_space", "1 while it takes no mail from the queue for want of space.",
          FlagIn(status, "low_space") ? 1 : 0);
    Gauge("tobix_missing", "1 while something that it needs is missing.", TextIn(status, "missing").empty() ? 0 : 1);
    const json& threads = MemberIn(status, "threads");
    const auto nStuck =
        std::count_if(threads.begin(), threads.end(), [](const json& one) { return FlagIn(one, "stuck"); });
    Gauge("tobix_threads_stuck", "Threads that do not get on.", static_cast<double>(nStuck));
    const json& outgoing = MemberIn(status, "outgoing");
    Gauge("tobix_outgoing_sending", "Outgoing mails that are being sent.", RealIn(outgoing, "sending"));
    Gauge("tobix_outgoing_waiting", "Outgoing mails that wait to be tried again.", RealIn(outgoing, "waiting"));
    TellTables(MemberIn(status, "tables"), text);
    TellCounters(MemberIn(status, "counters"), text);
    TellHistograms(MemberIn(status, "histograms"), text);
}

/// Of one directory.
struct SPresent
{
    const char* pszDirectory;
    double waiting = 0;
    double held = 0;
    double failed = 0;
    int64_t iOldest = 0; ///< seconds since 1970-01-01 UTC, of those that wait; 0: none does

    /// No file is opened.
    static SPresent In(const char* pszDirectory, const Bex::CSimpleString& strPath)
    {
        SPresent present{pszDirectory};
        Platform::CDirectoryListing listing;
        if (!listing.Read(strPath.Text()))
            throw CControlError(EExit::Wrong,
                                std::string("cannot list ") + strPath.Text() + ": " + ErrorText(Platform::LastError()));
        for (size_t nIndex = 0; nIndex < listing.Count(); ++nIndex) {
            const Platform::SDirectoryEntry entry = listing.At(nIndex);
            if (const auto name = SMailName::OfFile(EPlace::Queue, entry.pszName); name && entry.bRegular)
                present.Add(*name, Bex::PathBelow(strPath, entry.pszName));
        }
        return present;
    }

private:
    void Add(const SMailName& name, const Bex::CSimpleString& strPath)
    {
        ++(name.mark == EMark::None ? waiting : name.mark == EMark::Held ? held : failed);
        Platform::SFileTimes times;
        if (name.mark != EMark::None || !Platform::GetFileTimes(strPath.Text(), times))
            return; // the last means that it has gone
        const int64_t iCreated = times.iCreated / NANOSECONDS;
        iOldest = iOldest == 0 ? iCreated : std::min(iOldest, iCreated);
    }
};

void TellDirectories(CMetricsText& text)
{
    const SPresent all[] = {SPresent::In("queue", PlaceDirectory(EPlace::Queue)),
                            SPresent::In("outgoing", PlaceDirectory(EPlace::Outgoing)),
                            SPresent::In("error", Config().GetPath(Keys::ERROR_DIR))};
    const auto Gauges = [&](const char* pszFamily, const char* pszHelp, double SPresent::*pFigure) {
        text.Family(pszFamily, GAUGE, pszHelp);
        for (const SPresent& present : all)
            text.Sample("", "directory", present.pszDirectory, present.*pFigure);
    };
    Gauges("tobix_mails", "Mail files in a directory.", &SPresent::waiting);
    Gauges("tobix_mails_held", "Mails that an administrator keeps back.", &SPresent::held);
    Gauges("tobix_mails_set_aside", "Failed mails that could not be moved to the error directory.", &SPresent::failed);
    text.Family("tobix_oldest_mail_seconds", GAUGE, "Age of the oldest mail in a directory.", "seconds");
    for (const SPresent& present : all) {
        const int64_t iAge = present.iOldest == 0 ? 0 : Platform::NowSeconds() - present.iOldest;
        text.Sample("", "directory", present.pszDirectory, static_cast<double>(std::max<int64_t>(0, iAge)));
    }
}

std::optional<json> AskDaemon()
{
    try {
        return CDaemon::OfConfiguration().AskIfRunning({{"command", "status"}});
    } catch (const CControlError& error) {
        CTerminal::Complain(error.what());
        return std::nullopt;
    }
}

void Replace(const std::string& strPath, const std::string& strText)
{
    Platform::CTemporaryFile file;
    Platform::CFileHandle writer;
    if (!file.Create(strPath.c_str(), writer, nullptr, FOR_EVERYBODY) ||
        writer.Write(strText.data(), strText.size()) < 0 || !writer.Close() || !file.Replace())
        throw CControlError(EExit::Wrong, "cannot write " + strPath + ": " + ErrorText(Platform::LastError()));
}

} // namespace

int Metrics(const SOptions& options, const std::string& strOutput)
{
    const std::string strPath = Platform::AbsolutePath(strOutput); // before the working directory changes
    LoadConfiguration(options);
    CMetricsText text;
    const std::optional<json> status = AskDaemon();
    text.Family("tobix_up", GAUGE, "1 while a daemon answers.");
    text.Sample("", status ? 1 : 0);
    if (status)
        TellDaemon(*status, text);
    TellDirectories(text);
    if (strPath.empty())
        CTerminal(options).Raw(text.Finish());
    else
        Replace(strPath, text.Finish());
    return static_cast<int>(EExit::Done);
}
