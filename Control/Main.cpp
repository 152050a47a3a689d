// tobixctl: the administrator's command. Here is its command line; each command has a file of its own.

#include "Bex/CException.h"
#include "Common/CCommonService.h"
#include "Control/CControlError.h"
#include "Control/CTerminal.h"
#include "Control/Check.h"
#include "Control/MailActions.h"
#include "Control/Mailbox.h"
#include "Control/MailboxAdd.h"
#include "Control/Metrics.h"
#include "Control/QueueList.h"
#include "Control/QueueShow.h"
#include "Control/Requeue.h"
#include "Control/Route.h"
#include "Control/Status.h"

#include <CLI/CLI.hpp>
#include <functional>

namespace {

constexpr char DESCRIPTION[] = "Looks into the mail delivery agent and steers it.";
constexpr char PROGRAM_FOOTER[] =
    "Exit codes: 0 done, 1 something is wrong or not found, 2 wrong usage, 3 refused (in delivery, not confirmed),\n"
    "            4 no daemon answers\n\n"
    "Examples:\n"
    "  tobixctl status                               is all well with the daemon?\n"
    "  tobixctl queue --older 1h                     what has been waiting for more than an hour, and why?\n"
    "  tobixctl retry --to '*@example.com'           their server is back: try again now\n"
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
    SQueueQuestion queue;
    SMailSelection mails;
    std::string strMail; ///< that is to be shown
    SRequeueQuestion requeue;
    std::string strOutput;    ///< of metrics
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

void DeclareStatus(CLI::App& program, SCommandLine& line)
{
    AddCommand(program, "status", "Tells what the running daemon does, its tables, threads and counters",
               "  tobixctl status\n"
               "  tobixctl status --json | jq .outgoing.waiting",
               line, [&line] { return Status(line.options); });
}

void DeclareMetrics(CLI::App& program, SCommandLine& line)
{
    AddCommand(program, "metrics", "Writes what the daemon counts and what waits as text for OpenMetrics",
               "  tobixctl metrics\n"
               "  tobixctl metrics --output /var/lib/prometheus/node-exporter/tobix.prom",
               line, [&line] { return Metrics(line.options, line.strOutput); })
        .add_option("--output", line.strOutput, "the file that is replaced, at once, instead of standard output")
        ->type_name("FILE");
}

void DeclareRequeue(CLI::App& program, SCommandLine& line)
{
    CLI::App& requeue =
        AddCommand(program, "requeue", "Gives mail out of the error directory another chance",
                   "  tobixctl requeue a.eml                            shows who has it already, and asks\n"
                   "  tobixctl requeue a.eml --to ann@example.org       only for her; the others keep theirs",
                   line, [&line] { return Requeue(line.options, line.requeue); });
    requeue
        .add_option("MAIL", line.requeue.strName, "a name in the error directory, or what the list calls \"failed\"")
        ->required();
    requeue.add_option("--to", line.requeue.recipients, "a recipient, of those in the mail; may be repeated")
        ->type_name("ADDRESS")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    requeue.add_flag("--yes", line.requeue.bConfirmed, "do not ask: for all who are not known to have it");
}

void AddPattern(CLI::App& command, const char* pszOption, std::string& strPattern, const char* pszMeaning)
{
    command.add_option(pszOption, strPattern, pszMeaning)->type_name("PATTERN");
}

void DeclareQueue(CLI::App& program, SCommandLine& line)
{
    CLI::App& queue = AddCommand(
        program, "queue", "Lists the mail that waits in the queue and the outgoing directory, and what is held there",
        "  tobixctl queue\n"
        "  tobixctl queue --to '*@example.com' --older 2h\n"
        "  tobixctl queue --json --limit 0 | jq -r '.[] | select(.state == \"held\") | .name'\n"
        "  tobixctl queue show outgoing/20261125101500001230042.eml",
        line, [&line] {
            return line.strMail.empty() ? ListQueue(line.options, line.queue) : ShowQueued(line.options, line.strMail);
        });
    AddPattern(queue, "--from", line.queue.strFrom, "only of senders like this; * stands for anything");
    AddPattern(queue, "--to", line.queue.strTo, "only to recipients like this");
    queue.add_option("--older", line.queue.strOlder, "only what has been waiting for longer: 90s, 15m, 2h, 3d, 1w")
        ->type_name("TIME");
    queue.add_option("--limit", line.queue.nLimit, "so many at most, 0 for all")->capture_default_str();
    AddCommand(queue, "show", "Shows one with its headers, the report of its last attempt, and the road that it took",
               "  tobixctl queue show queue/a.eml", line, [&line] { return ShowQueued(line.options, line.strMail); })
        .add_option("MAIL", line.strMail, "as the list names it")
        ->required();
}

CLI::App& AddMailCommand(CLI::App& program, const char* pszName, const char* pszMeaning, const char* pszExamples,
                         SCommandLine& line, int (*Run)(const SOptions&, const SMailSelection&))
{
    CLI::App& command = AddCommand(program, pszName, pszMeaning, pszExamples, line,
                                   [&line, Run] { return Run(line.options, line.mails); });
    command.add_option("MAIL", line.mails.names, "as the list names it; the directory's name may be left out");
    return command;
}

void DeclareMailCommands(CLI::App& program, SCommandLine& line)
{
    CLI::App& retry = AddMailCommand(program, "retry", "Has outgoing mail tried again now, failed bounces too",
                                     "  tobixctl retry --all\n"
                                     "  tobixctl retry --to '*@example.com'",
                                     line, RetryMail);
    AddPattern(retry, "--to", line.mails.strTo, "all to recipients like this; * stands for anything");
    retry.add_flag("--all", line.mails.bAll, "all of it");
    CLI::App& hold = AddMailCommand(program, "hold", "Keeps mail where it is, undelivered, until it is released",
                                    "  tobixctl hold queue/a.eml\n"
                                    "  tobixctl hold --from '*@spammer.example'",
                                    line, HoldMail);
    AddPattern(hold, "--to", line.mails.strTo, "all to recipients like this; * stands for anything");
    AddPattern(hold, "--from", line.mails.strFrom, "all of senders like this");
    AddMailCommand(program, "release", "Lets held mail go on; the daemon takes it up at once",
                   "  tobixctl release queue/a.eml\n"
                   "  tobixctl release --all",
                   line, ReleaseMail)
        .add_flag("--all", line.mails.bAll, "all that is held");
    AddMailCommand(program, "bounce", "Gives up outgoing mail: its sender gets it back with the report",
                   "  tobixctl bounce outgoing/20261125101500001230042.eml", line, BounceMail);
    AddMailCommand(program, "remove", "Removes mail for good, and tells nobody",
                   "  tobixctl remove queue/a.eml\n"
                   "  tobixctl remove --yes a.eml.held b.eml.held",
                   line, RemoveMail)
        .add_flag("--yes", line.mails.bConfirmed, "do not ask");
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
    DeclareStatus(program, line);
    DeclareQueue(program, line);
    DeclareMailCommands(program, line);
    DeclareRequeue(program, line);
    DeclareMetrics(program, line);
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
