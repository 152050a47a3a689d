#include "Inject/SCommand.h"

#include "Bex/TextFunctions.h"
#include "Inject/CRefusal.h"

namespace {

constexpr std::string_view WITH_VALUE = "ABFLNORVXbefhopr";
constexpr std::string_view FLAGS = "GUimntv";
constexpr std::string_view REST_IS_VALUE = "dq"; ///< which may be missing

bool Contains(std::string_view letters, char c) { return letters.find(c) != letters.npos; }

void SetMode(SCommand& command, std::string_view mode)
{
    if (mode == "m")
        return;
    if (mode == "i") // the daemon sees by itself that its tables have changed
        command.bReadsMail = false;
    else if (mode == "p")
        throw CRefusal(EExit::Usage, "-bp: \"tobixctl queue\" lists the waiting mail");
    else if (mode == "v")
        throw CRefusal(EExit::Usage, "-bv: \"tobixctl route ADDRESS\" tells where mail would go");
    else
        throw CRefusal(EExit::Usage, "-b" + std::string(mode) + ": mail comes from standard input only, without SMTP");
}

void Take(SCommand& command, char cOption, std::string_view value)
{
    switch (cOption) {
    case 'b':
        SetMode(command, value);
        break;
    case 'f':
    case 'r':
        command.sender = value;
        break;
    case 'F':
        command.name = value;
        break;
    case 'i':
        command.bDotEnds = false;
        break;
    case 'o':
        command.bDotEnds = command.bDotEnds && value != "i";
        break;
    case 'O':
        command.bDotEnds = command.bDotEnds && !Bex::StartsWithNoCase(value, "IgnoreDots=t");
        break;
    case 'q':
        command.bReadsMail = false;
        break;
    case 't':
        command.bRecipientsInMail = true;
        break;
    default: // without effect
        break;
    }
}

} // namespace

SCommand SCommand::Parse(const std::vector<std::string_view>& arguments)
{
    SCommand command;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (*argument == "--") {
            command.recipients.insert(command.recipients.end(), argument + 1, arguments.end());
            break;
        }
        if (!argument->starts_with('-') || argument->size() == 1) {
            command.recipients.push_back(*argument);
            continue;
        }
        for (std::string_view rest = argument->substr(1); !rest.empty();) {
            const char cOption = rest.front();
            rest.remove_prefix(1);
            const bool bValue = Contains(WITH_VALUE, cOption);
            if (!bValue && !Contains(FLAGS, cOption) && !Contains(REST_IS_VALUE, cOption))
                throw CRefusal(EExit::Usage, std::string("there is no option -") + cOption);
            if (bValue && rest.empty()) {
                if (++argument == arguments.end())
                    throw CRefusal(EExit::Usage, std::string("-") + cOption + " needs a value");
                rest = *argument;
            }
            const bool bTakesRest = bValue || Contains(REST_IS_VALUE, cOption);
            Take(command, cOption, bTakesRest ? rest : std::string_view());
            if (bTakesRest)
                break;
        }
    }
    return command;
}
