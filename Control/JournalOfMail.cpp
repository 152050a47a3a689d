#include "Control/JournalOfMail.h"

#include "Bex/TextFunctions.h"
#include "Control/CControlError.h"
#include "Control/JsonFields.h"
#include "Platform/ProgramOutput.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace {

constexpr unsigned LONGEST_MILLIS = 20'000;
constexpr size_t MOST_NAMES = 100;

using CNames = std::vector<std::string>;

struct SAmount
{
    const char* pszLines; ///< the last ones
    size_t nBytes;
};
constexpr SAmount TO_SHOW{"1000", 1u << 20};
constexpr SAmount ALL{"all", 256u << 20}; ///< a line for each recipient of a mail that has as many as one may have

/// What is known by any of the names; nothing when there is no journal to be asked.
std::optional<std::string> AskJournal(const CNames& names, std::vector<std::string> format, SAmount most,
                                      bool* pbComplete = nullptr)
{
    std::vector<std::string> command{"journalctl", "--no-pager", "--quiet", "-n", most.pszLines};
    std::ranges::move(format, std::back_inserter(command));
    for (const std::string& strName : names)
        command.push_back("TOBIX_MAIL=" + strName);
    std::string strOutput;
    if (!Platform::ReadProgramOutput(command, most.nBytes, LONGEST_MILLIS, strOutput, pbComplete))
        return std::nullopt;
    return strOutput;
}

std::vector<std::string> LinesOf(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty())
        lines.emplace_back(Bex::TakeLine(text));
    return lines;
}

/// False when there may be more of them.
template <class TVisit>
bool ForEachEntry(std::string_view name, const char* pszFields, SAmount most, TVisit Visit)
{
    bool bComplete = false;
    const std::optional<std::string> output =
        AskJournal({std::string(name)}, {"-o", "json", std::string("--output-fields=") + pszFields}, most, &bComplete);
    for (std::string_view text = output ? *output : std::string_view(); !text.empty();)
        Visit(nlohmann::json::parse(Bex::TakeLine(text), nullptr, false));
    return output && bComplete;
}

/// A field that stands several times in an entry is a list.
CNames TextsIn(const nlohmann::json& entry, const char* pszField)
{
    CNames texts;
    for (const nlohmann::json& value : MemberIn(entry, pszField)) {
        if (value.is_string())
            texts.push_back(value.get<std::string>());
    }
    return texts;
}

/// The line that hands a mail over knows it by both names, and by its message id.
CNames NamesOf(std::string_view name, std::string_view messageID)
{
    CNames names{std::string(name)};
    if (messageID.empty())
        return names;
    const std::string strId = std::string("<").append(messageID).append(">");
    ForEachEntry(name, "TOBIX_MAIL", TO_SHOW, [&](const nlohmann::json& entry) {
        const CNames known = TextsIn(entry, "TOBIX_MAIL");
        if (std::ranges::find(known, strId) == known.end())
            return;
        for (const std::string& strOther : known) {
            if (strOther != strId && names.size() < MOST_NAMES && std::ranges::find(names, strOther) == names.end())
                names.push_back(strOther);
        }
    });
    return names;
}

/// The mail's lines say how it went on at their ends: "saved in outgoing", "saved in <user>".
bool TellsOfCopy(std::string_view message, std::string_view messageID)
{
    const std::string strBegin = "mail <" + std::string(messageID) + "> ";
    return message.starts_with(strBegin) && message.find("> saved in ") != std::string_view::npos;
}

} // namespace

SJournalOfMail SJournalOfMail::Of(std::string_view name, std::string_view messageID)
{
    SJournalOfMail journal;
    const std::optional<std::string> output = AskJournal(NamesOf(name, messageID), {"-o", "short-iso"}, TO_SHOW);
    if (output)
        journal.lines = LinesOf(*output);
    else
        journal.strWhyNone = "there is no journal to be asked (journalctl: " + ErrorText(Platform::LastError()) + ")";
    if (output && journal.lines.empty())
        journal.strWhyNone = "the journal has no line about it";
    return journal;
}

bool SJournalOfMail::FindCopies(std::string_view name, CCopies& copies)
{
    return ForEachEntry(name, "MESSAGE,TOBIX_TO", ALL, [&](const nlohmann::json& entry) {
        copies.push_back({TextIn(entry, "MESSAGE"), TextsIn(entry, "TOBIX_TO")});
    });
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
