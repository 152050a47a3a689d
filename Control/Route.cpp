#include "Control/Route.h"

#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Common/MailHlpr.h"
#include "Common/NormalizeAddress.h"
#include "Control/AliasSteps.h"
#include "Control/CControlError.h"
#include "Control/CRouteAnswer.h"
#include "Control/LoadConfiguration.h"
#include "Control/LoadTables.h"
#include "Control/RouteOut.h"
#include "Platform/FileSystem.h"
#include "Tobix/CInterceptor.h"
#include "Tobix/SMailDirectories.h"
#include "Tobix/SRecipientRoute.h"
#include "Tobix/TableFiles.h"

namespace {

/// The mail that the question is about, or one that has nothing but its sender.
void MakeMail(CMail& mail, const SRouteQuestion& question, const std::string& strFile)
{
    if (!strFile.empty()) {
        const SLoadResult loaded = mail.Load(Bex::CSimpleString(strFile), false);
        if (!loaded)
            throw CControlError(EExit::Wrong, "cannot read the mail " + strFile + ": " + ErrorText(loaded.error));
    }
    if (!question.strSender.empty())
        mail.SetEnvelopeSender(Bex::CSimpleString(question.strSender));
}

void TellFilter(const CMail& mail, bool bMail, CRouteAnswer& answer)
{
    Bex::CSimpleString strPhrase;
    if (!Config().GetFlag(Keys::FILTER_CONTENT))
        return answer.Tell("filter", "filter", "off");
    if (!bMail)
        return answer.Tell("filter", "filter", std::to_string(Filters().Count()) + " phrases; --mail FILE asks them");
    if (Filters().ContentFilterMatch(mail, strPhrase))
        return answer.Fail(std::string("it is filtered for the phrase \"") + strPhrase.Text() + "\" into " +
                           Config().GetPath(Keys::FILTER_DIR).Text());
    answer.Tell("filter", "filter", "passed");
}

/// The way through the table as it stands in the file, when that leads where the daemon's own table does.
void TellAliases(const Bex::CSimpleString& strRecipient, const SRecipientRoute& route, CRouteAnswer& answer)
{
    const Bex::CSimpleString strKey = Aliases().Step(strRecipient.Lowered()).strKey;
    if (!IsLocalAddress(strRecipient) || strKey.IsEmpty())
        return;
    CAliases plain;
    LoadError(plain, TableFiles::Aliases());
    const SAliasWay way = AliasWay(plain, strRecipient.Lowered());
    auto steps = nlohmann::ordered_json::array();
    if (!way.bCircle && way.End() == route.strTarget) {
        for (const CAliases::SStep& step : way.steps) {
            steps.push_back({{"key", step.strKey.Text()}, {"target", step.strTarget.Text()}});
            answer.Say("alias", step.strKey.IsEmpty()
                                    ? "(the user's own name) -> " + std::string(step.strTarget.Text())
                                    : std::string(step.strKey.Text()) + " -> " + step.strTarget.Text());
        }
    } else {
        steps.push_back({{"key", strKey.Text()}, {"target", route.strTarget.Text()}});
        answer.Say("alias", std::string(strKey.Text()) + " -> " + route.strTarget.Text());
    }
    answer.Set("aliases", std::move(steps));
}

std::string ProgramsOf(const Bex::CConfigFile& account, const Bex::CSimpleString& strDirectory)
{
    std::string strPrograms;
    const auto Add = [&strPrograms](bool bRuns, const char* pszName) {
        if (bRuns)
            strPrograms.append(strPrograms.empty() ? "" : ", ").append(pszName);
    };
    Add(account.GetFlag(AccountKeys::RUN_ANTI_SPAM), "spamscan.exe");
    Add(account.GetFlag(AccountKeys::RUN_REPLY) && !account.GetString(AccountKeys::RUN_REPLY_TEMPLATE).IsEmpty(),
        "responder.exe");
    Add(HasPostScript(strDirectory), "newmail.cmd");
    return strPrograms;
}

void TellMailbox(const Bex::CSimpleString& strUser, CRouteAnswer& answer)
{
    const Bex::CSimpleString strDirectory = Users().UserDirectory(strUser);
    answer.Tell("user", "user", strUser.Text());
    if (strDirectory.IsEmpty())
        return answer.Fail("no mailbox can have that name");
    answer.Tell("mailbox", "mailbox", strDirectory.Text(), EStyle::Good);
    Bex::CConfigFile account;
    const Bex::CSimpleString strFile = Bex::JoinPath(strDirectory, "config");
    const Platform::SError error = LoadError(account, strFile);
    if (error.dwSysError != 0)
        return answer.Fail(std::string("the account file ") + strFile.Text() + " cannot be read: " + ErrorText(error));
    if (const std::string strPrograms = ProgramsOf(account, strDirectory); !strPrograms.empty())
        answer.Tell("programs", "starts", strPrograms);
}

void TellInterception(const CMail& mail, const SRecipientRoute& route, CRouteAnswer& answer)
{
    const CInterceptor interceptor(TableFiles::InterceptAddresses(),
                                   SMailDirectories::FromConfiguration().strIntercept);
    for (const Bex::CSimpleString& strAddress : {mail.EnvelopeSender(), route.strTarget}) {
        if (interceptor.IsListed(strAddress))
            answer.Tell("intercepted", "intercepted", strAddress.Lowered().Text(), EStyle::Warning);
    }
}

} // namespace

int Route(const SOptions& options, const SRouteQuestion& question)
{
    const std::string strFile = Platform::AbsolutePath(question.strMail); // before the working directory changes
    LoadTables(options);
    const Bex::CSimpleString strRecipient(question.strRecipient);
    CMail mail;
    MakeMail(mail, question, strFile);
    CRouteAnswer answer;
    answer.Tell("from", "from", mail.EnvelopeSender().IsEmpty() ? "<>" : mail.EnvelopeSender().Text());
    answer.Tell("to", "to", strRecipient.Text());
    TellFilter(mail, !strFile.empty(), answer);
    if (!answer.Fails()) {
        const SRecipientRoute route = SRecipientRoute::Of(strRecipient);
        TellAliases(strRecipient, route, answer);
        TellInterception(mail, route, answer);
        if (route.way == SRecipientRoute::EWay::Mailbox)
            TellMailbox(route.strTarget, answer);
        else if (route.way == SRecipientRoute::EWay::Outgoing)
            TellWayOut(mail, strRecipient, route, answer);
        else
            answer.Fail(IsLocalAddress(strRecipient) ? "its domain is local, but it leads to no user and no alias"
                                                     : "no mail can be sent to such an address");
    }
    answer.Write(CTerminal(options));
    return static_cast<int>(answer.Fails() ? EExit::Wrong : EExit::Done);
}
