#include "Control/JournalOfMail.h"

#include "Control/CControlError.h"
#include "Control/JsonFields.h"
#include "Platform/ProgramOutput.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace {

constexpr size_t MOST_BYTES = 1u << 20;
constexpr unsigned LONGEST_MILLIS = 20'000;
constexpr char MOST_LINES[] = "1000";

/// Nothing when there is no journal to be asked.
std::optional<std::string> AskJournal(std::string_view name, std::vector<std::string> format)
{
    std::vector<std::string> command{"journalctl", "--no-pager", "--quiet", "-n", MOST_LINES};
    std::ranges::move(format, std::back_inserter(command));
    command.push_back("TOBIX_MAIL=" + std::string(name));
    std::string strOutput;
    if (!Platform::ReadProgramOutput(command, MOST_BYTES, LONGEST_MILLIS, strOutput))
        return std::nullopt;
    return strOutput;
}

std::vector<std::string> LinesOf(std::string_view text)
{
    std::vector<std::string> lines;
    for (size_t nStart = 0; nStart < text.size();) {
        const size_t nEnd = std::min(text.find('\n', nStart), text.size());
        if (nEnd > nStart)
            lines.emplace_back(text.substr(nStart, nEnd - nStart));
        nStart = nEnd + 1;
    }
    return lines;
}

/// The mail's lines say how it went on at their ends: "saved in outgoing", "saved in <user>".
bool TellsOfCopy(std::string_view message, std::string_view messageID)
{
    const std::string strBegin = "mail <" + std::string(messageID) + "> ";
    return message.starts_with(strBegin) && message.find("> saved in ") != std::string_view::npos;
}

} // namespace

SJournalOfMail SJournalOfMail::Of(std::string_view name)
{
    SJournalOfMail journal;
    const std::optional<std::string> output = AskJournal(name, {"-o", "short-iso"});
    if (output)
        journal.lines = LinesOf(*output);
    else
        journal.strWhyNone = "there is no journal to be asked (journalctl: " + ErrorText(Platform::LastError()) + ")";
    if (output && journal.lines.empty())
        journal.strWhyNone = "the journal has no line about it";
    return journal;
}

/// A field that stands several times in an entry is a list.
SJournalOfMail::CCopies SJournalOfMail::CopiesOf(std::string_view name)
{
    CCopies copies;
    const std::optional<std::string> output = AskJournal(name, {"-o", "json", "--output-fields=MESSAGE,TOBIX_TO"});
    for (const std::string& strLine : LinesOf(output.value_or(""))) {
        const nlohmann::json entry = nlohmann::json::parse(strLine, nullptr, false);
        SCopy copy{TextIn(entry, "MESSAGE"), {}};
        for (const nlohmann::json& recipient : MemberIn(entry, "TOBIX_TO")) {
            if (recipient.is_string())
                copy.recipients.push_back(recipient.get<std::string>());
        }
        copies.push_back(std::move(copy));
    }
    return copies;
}

std::vector<std::string> SJournalOfMail::Served(const CCopies& copies, std::string_view messageID)
{
    std::vector<std::string> served;
    for (const SCopy& copy : copies) {
        if (TellsOfCopy(copy.strMessage, messageID))
            served.insert(served.end(), copy.recipients.begin(), copy.recipients.end());
    }
    return served;
}
