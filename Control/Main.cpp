// tobixctl: the administrator's command. Here is its command line; each command has a file of its own.

#include "Bex/CException.h"
#include "Common/CCommonService.h"
#include "Control/CControlError.h"
#include "Control/CTerminal.h"
#include "Control/Check.h"
#include "Control/Mailbox.h"
#include "Control/MailboxAdd.h"
#include "Control/Route.h"

#include <CLI/CLI.hpp>
#include <functional>

namespace {

constexpr char DESCRIPTION[] = "Looks into the mail delivery agent and steers it.";
constexpr char PROGRAM_FOOTER[] =
    "Exit codes: 0 done, 1 something is wrong or not found, 2 wrong usage, 3 refused (in delivery, not confirmed),\n"
    "            4 no daemon answers\n\n"
    "Examples:\n"
    "  tobixctl check                                is something wrong?\n"
    "  tobixctl route info@example.org               where would mail for this address go?\n"
    "  tobixctl mailbox add ann@example.org          a new user\n"
    "  tobixctl mailbox list                         whose mailboxes there are\n"
    "  tobixctl mailbox list --help                  what a command takes, with examples";

/// What the command line asks for.
struct SCommandLine
{
    SOptions options;
    std::string strUser;
    SRouteQuestion route;
    std::function<int()> Run; ///< the chosen command
};

/// A command without commands of its own, which takes the global options behind its name, too.
CLI::App& AddCommand(CLI::App& parent, const char* pszName, const char* pszMeaning, const char* pszExamples,
                     SCommandLine& line, std::function<int()> Run)
{
    CLI::App& command = *parent.add_subcommand(pszName, pszMeaning);
    command.fallthrough();
    command.footer(std::string("Examples:\n") + pszExamples);
    command.callback([&line, Run = std::move(Run)] { line.Run = Run; });
    return command;
}

CLI::App& AddGroup(CLI::App& program, const char* pszName, const char* pszMeaning)
{
    CLI::App& group = *program.add_subcommand(pszName, pszMeaning);
    group.fallthrough();
    group.require_subcommand(1);
    group.footer("");
    return group;
}

void DeclareGlobalOptions(CLI::App& program, SOptions& options)
{
    program
        .add_option("-c,--config", options.strConfiguration,
                    "the configuration's file; its tables are looked for in MAILCONFIGDIR, else beside it")
        ->type_name("FILE");
    program.add_flag("--json", options.bJson, "answer in JSON");
    program.add_flag("--no-color", options.bNoColour, "no colours; so does NO_COLOR in the environment");
    program.set_version_flag("--version",
                             [] { return std::string("tobixctl ") + CCommonService::VersionText().Text(); });
}

void DeclareMailbox(CLI::App& program, SCommandLine& line)
{
    CLI::App& mailbox = AddGroup(program, "mailbox", "The mailboxes of local users");
    AddCommand(mailbox, "list", "Lists all of them with what they hold",
               "  tobixctl mailbox list\n"
               "  tobixctl mailbox list --json | jq '.[].user'",
               line, [&line] { return ListMailboxes(line.options); });
    AddCommand(mailbox, "show", "Shows one with its settings and aliases",
               "  tobixctl mailbox show ann\n"
               "  tobixctl mailbox show info@example.org       whoever gets its mail",
               line, [&line] { return ShowMailbox(line.options, line.strUser); })
        .add_option("USER", line.strUser, "a user, or an address that leads to one")
        ->required();
    AddCommand(mailbox, "add", "Makes the mailbox of a new user, and its domain local where it is not",
               "  tobixctl mailbox add ann@example.org\n"
               "  tobixctl mailbox add ann                     at every local domain",
               line, [&line] { return AddMailbox(line.options, line.strUser); })
        .add_option("ADDRESS", line.strUser, "the user's name, with the domain or without")
        ->required();
}

void DeclareCheck(CLI::App& program, SCommandLine& line)
{
    CLI::App& check = AddCommand(program, "check", "Tells what is wrong with the configuration and the tables",
                                 "  tobixctl check                       what the daemon reads now\n"
                                 "  tobixctl check -c ./new/tobix.cfg    before it goes into service\n"
                                 "  tobixctl check --user mail           as another user than the service's",
                                 line, [&line] { return Check(line.options, line.strUser); });
    check.add_option("--user", line.strUser, "look as this user does, instead of tobix; takes root")->type_name("USER");
}

void DeclareRoute(CLI::App& program, SCommandLine& line)
{
    CLI::App& route =
        AddCommand(program, "route", "Tells where mail for an address would go, and delivers nothing",
                   "  tobixctl route info@example.org\n"
                   "  tobixctl route ann@example.com --from bob@example.org   smart hosts may ask for it\n"
                   "  tobixctl route info@example.org --mail a.eml            the filters, too",
                   line, [&line] { return Route(line.options, line.route); });
    route.add_option("ADDRESS", line.route.strRecipient, "the recipient")->required();
    route.add_option("--from", line.route.strSender, "the sender; without it the null sender, or the mail's")
        ->type_name("ADDRESS");
    route.add_option("--mail", line.route.strMail, "a mail file that the question is about")->type_name("FILE");
}

/// Help and version are no errors. What the command line said may hold anything.
int TellUsage(const CLI::App& program, const CLI::ParseError& error)
{
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
        return program.exit(error);
    CTerminal::Complain(std::string(error.what()) + "; see tobixctl --help");
    return static_cast<int>(EExit::Misused);
}

int RunCommand(const std::function<int()>& Run)
{
    try {
        return Run();
    } catch (const CControlError& error) {
        CTerminal::Complain(error.what());
        return static_cast<int>(error.Exit());
    } catch (const Bex::CException& exception) {
        char szMessage[1024];
        exception.GetMessage(szMessage, sizeof szMessage);
        CTerminal::Complain(szMessage);
    } catch (const std::exception& exception) {
        CTerminal::Complain(exception.what());
    }
    return static_cast<int>(EExit::Wrong);
}

} // namespace

int main(int nArguments, char** ppArguments)
{
    SCommandLine line;
    CLI::App program(DESCRIPTION, "tobixctl");
    program.require_subcommand(1);
    program.footer(PROGRAM_FOOTER);
    DeclareGlobalOptions(program, line.options);
    DeclareCheck(program, line);
    DeclareRoute(program, line);
    DeclareMailbox(program, line);
    try {
        program.parse(nArguments, ppArguments);
    } catch (const CLI::ParseError& error) {
        return TellUsage(program, error);
    }
    const int iExit = RunCommand(line.Run);
    if (CTerminal::Finish())
        return iExit;
    CTerminal::Complain("standard output took not all of the answer");
    return static_cast<int>(EExit::Wrong);
}
