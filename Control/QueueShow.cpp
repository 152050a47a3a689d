#include "Control/QueueShow.h"

#include "Bex/TextFunctions.h"
#include "Control/CControlError.h"
#include "Control/CTerminal.h"
#include "Control/Figures.h"
#include "Control/JournalOfMail.h"
#include "Control/LoadConfiguration.h"
#include "Control/WaitingState.h"
#include "Platform/FileBeginning.h"
#include "SMTPc/ErrorReport.h"

#include <algorithm>

namespace {

constexpr size_t LONGEST_HEADER = 65536; ///< shown
constexpr size_t LONGEST_REPORT = 65536;
constexpr EMark ANY_MARK[] = {EMark::None, EMark::Held, EMark::Failed};

/// The lines without their ends, up to the end of the header block when only that is wanted.
std::vector<std::string> LinesOf(std::string_view text, bool bHeader)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::string_view line = Bex::TakeLine(text);
        if (bHeader && line.empty())
            break;
        lines.emplace_back(line);
    }
    return lines;
}

std::vector<std::string> LinesOfFile(const Bex::CSimpleString& strPath, size_t nMost, bool bHeader)
{
    Platform::SFileBeginning file;
    return Platform::ReadBeginning(strPath.Text(), nMost, file) ? LinesOf(file.strBytes, bHeader)
                                                                : std::vector<std::string>();
}

/// A tab would become "?".
std::string Untabbed(std::string strLine)
{
    std::ranges::replace(strLine, '\t', ' ');
    return strLine;
}

void Section(const CTerminal& terminal, const char* pszHeading, const std::vector<std::string>& lines)
{
    if (lines.empty())
        return;
    terminal.Line();
    terminal.Line(pszHeading, EStyle::Strong);
    for (const std::string& strLine : lines)
        terminal.Line("  " + Untabbed(strLine));
}

void TellMail(const CTerminal& terminal, const SWaitingMail& mail, const SWaitingState& state)
{
    terminal.Field("mail", mail.name.Shown(), EStyle::Strong);
    terminal.Field("state", state.strText);
    terminal.Field("waits since", MomentText(mail.iCreated) + ", " + AgeText(mail.Age()));
    terminal.Field("size", SizeText(static_cast<uint64_t>(mail.iSize)));
    terminal.Field("from", mail.strSender.empty() ? "<>" : mail.strSender);
    for (const std::string& strRecipient : mail.recipients)
        terminal.Field("to", strRecipient);
    if (mail.bMoreRecipients)
        terminal.Field("to", "maybe others");
    if (state.attempts)
        terminal.Field("attempts", std::to_string(*state.attempts) + " since the daemon's start");
    if (state.nextTry)
        terminal.Field("next try", MomentText(*state.nextTry));
    if (!mail.strError.empty())
        terminal.Field("last error", mail.strError, EStyle::Bad);
}

} // namespace

int ShowQueued(const SOptions& options, const std::string& strName)
{
    LoadConfiguration(options);
    const SMailName name = SMailName::Given(strName, PLACES, ANY_MARK);
    const std::optional<SWaitingMail> mail = SWaitingMail::Look(name, LONGEST_HEADER);
    if (!mail)
        throw CControlError(EExit::Wrong, strName + " has gone meanwhile");
    CKnownMails known;
    known.Ask({&*mail, 1});
    const SWaitingState state = SWaitingState::Of(*mail, known);
    const std::vector<std::string> headers = LinesOfFile(name.Path(), LONGEST_HEADER, true);
    const Bex::CSimpleString strUnmarked = SMailName{name.place, EMark::None, name.strName}.Path();
    const std::vector<std::string> report = LinesOfFile(ErrorReportPath(strUnmarked), LONGEST_REPORT, false);
    const SJournalOfMail journal = SJournalOfMail::Of(name.strName, mail->strMessageID);
    const CTerminal terminal(options);
    if (terminal.IsJson()) {
        nlohmann::ordered_json json = JsonOf(*mail, state);
        json["headers"] = headers;
        json["report"] = report;
        json["journal"] = journal.lines;
        terminal.Json(json);
        return static_cast<int>(EExit::Done);
    }
    TellMail(terminal, *mail, state);
    Section(terminal, "Headers", headers);
    Section(terminal, "Report", report);
    Section(terminal, "Journal", journal.lines.empty() ? std::vector{journal.strWhyNone} : journal.lines);
    return static_cast<int>(EExit::Done);
}
