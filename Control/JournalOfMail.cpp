#include "Control/JournalOfMail.h"

#include "Control/CControlError.h"
#include "Platform/ProgramOutput.h"

namespace {

constexpr size_t MOST_BYTES = 1u << 20;
constexpr unsigned LONGEST_MILLIS = 20'000;
constexpr char MOST_LINES[] = "1000";

} // namespace

SJournalOfMail SJournalOfMail::Of(std::string_view name)
{
    SJournalOfMail journal;
    std::string strOutput;
    const std::vector<std::string> command{"journalctl", "--no-pager", "--quiet",  "-o",
                                           "short-iso",  "-n",         MOST_LINES, "TOBIX_MAIL=" + std::string(name)};
    if (!Platform::ReadProgramOutput(command, MOST_BYTES, LONGEST_MILLIS, strOutput)) {
        journal.strWhyNone = "there is no journal to be asked (journalctl: " + ErrorText(Platform::LastError()) + ")";
        return journal;
    }
    for (size_t nStart = 0; nStart < strOutput.size();) {
        const size_t nEnd = std::min(strOutput.find('\n', nStart), strOutput.size());
        if (nEnd > nStart)
            journal.lines.push_back(strOutput.substr(nStart, nEnd - nStart));
        nStart = nEnd + 1;
    }
    if (journal.lines.empty())
        journal.strWhyNone = "the journal has no line about it";
    return journal;
}
