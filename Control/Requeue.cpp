#include "Control/Requeue.h"

#include "Bex/CFileException.h"
#include "Bex/TextFunctions.h"
#include "Common/CHeldMailFile.h"
#include "Common/Globals.h"
#include "Control/AskYesNo.h"
#include "Control/CControlError.h"
#include "Control/CTerminal.h"
#include "Control/JournalOfMail.h"
#include "Control/LoadTables.h"
#include "Control/SMailName.h"
#include "Platform/CActingUser.h"
#include "Platform/CFlushGroup.h"
#include "Platform/FileSystem.h"
#include "Tobix/SRecipientRoute.h"

#include <algorithm>

namespace {

constexpr std::string_view ERROR_PREFIX = "error/";
constexpr std::string_view EXTENSION = ".eml";
constexpr size_t SHORTEST_COPY_NAME = 23; ///< date, time, thread and counter, as the daemon names its copies
constexpr int MOST_NAMES = 100;
constexpr EPlace QUEUE[] = {EPlace::Queue};
constexpr EMark FAILED[] = {EMark::Failed};

using CAddresses = std::vector<std::string>;

/// The mail that is meant, and where it lies.
struct SFailedMail
{
    std::string strName;
    Bex::CSimpleString strPath;

    static SFailedMail Given(const std::string& strText)
    {
        const bool bPrefix = strText.starts_with(ERROR_PREFIX);
        const std::string strFile = bPrefix ? strText.substr(ERROR_PREFIX.size()) : strText;
        const std::optional<SMailName> name = SMailName::OfFile(EPlace::Queue, strFile);
        if (name && name->mark == EMark::None) {
            const Bex::CSimpleString strPath = Bex::PathBelow(Config().GetPath(Keys::ERROR_DIR), strFile);
            if (Platform::KindOf(strPath.Text(), false) == Platform::EPathKind::File)
                return {strFile, strPath};
        }
        if (bPrefix)
            throw CControlError(EExit::Wrong, strText + ": no such mail is there");
        const SMailName aside = SMailName::Given(strText, QUEUE, FAILED);
        return {aside.strName, aside.Path()};
    }
};

/// A copy that the daemon made for one recipient elsewhere: by its name, and by where that recipient's mail goes. What
/// only looks like one goes to the queue, which leads an address elsewhere to the outgoing directory as well.
bool IsOutgoing(const CMail& mail, const std::string& strName)
{
    const std::string_view digits = std::string_view(strName).substr(0, strName.size() - EXTENSION.size());
    const bool bCopyName =
        digits.size() >= SHORTEST_COPY_NAME && std::ranges::all_of(digits, [](char c) { return c >= '0' && c <= '9'; });
    if (!bCopyName || mail.Recipients().Count() != 1)
        return false;
    const SRecipientRoute route = SRecipientRoute::Of(mail.FirstRecipient());
    return route.way == SRecipientRoute::EWay::Outgoing && !route.bSentOn;
}

bool Holds(const CAddresses& addresses, const std::string& strAddress)
{
    return std::ranges::any_of(addresses, [&](const auto& known) { return Bex::EqualNoCase(known, strAddress); });
}

/// Who gets the mail again, and who does not but is not known to have it.
struct SChoice
{
    CAddresses chosen;
    CAddresses left;
    CAddresses served;

    static SChoice Of(const CMail& mail, const CAddresses& served, const CAddresses& wanted)
    {
        SChoice choice;
        for (const Bex::CSimpleString& strRecipient : mail.Recipients()) {
            const std::string strAddress = strRecipient.Text();
            const bool bServed = Holds(served, strAddress);
            if (wanted.empty() ? !bServed : Holds(wanted, strAddress))
                choice.chosen.push_back(strAddress);
            else
                (bServed ? choice.served : choice.left).push_back(strAddress);
        }
        return choice;
    }
};

void RequireKnown(const CMail& mail, const CAddresses& wanted)
{
    CAddresses recipients;
    for (const Bex::CSimpleString& strRecipient : mail.Recipients())
        recipients.emplace_back(strRecipient.Text());
    for (const std::string& strAddress : wanted) {
        if (!Holds(recipients, strAddress))
            throw CControlError(EExit::Wrong, strAddress + " is no recipient of the mail");
    }
}

std::string Joined(const CAddresses& addresses)
{
    std::string strText;
    for (const std::string& strAddress : addresses)
        strText.append(strText.empty() ? "" : ",").append(strAddress);
    return strText;
}

[[noreturn]] void Fail(const Bex::CSimpleString& strPath, Platform::SError error)
{
    throw CControlError(Platform::IsBusy(error) ? EExit::Refused : EExit::Wrong,
                        std::string(strPath.Text()) + ": " + ErrorText(error));
}

/// A new file of the mail's name, or of one like it when that is taken. It is on the disk when this returns.
SMailName WriteNew(const CMail& mail, EPlace place, const std::string& strName)
{
    Platform::CFlushGroup volumes;
    volumes.Add(PlaceDirectory(place).Text());
    const std::string strStem = strName.substr(0, strName.size() - EXTENSION.size());
    for (int iTry = 0; iTry < MOST_NAMES; ++iTry) {
        const std::string strTried =
            iTry == 0 ? strName : strStem + "-" + std::to_string(iTry) + std::string(EXTENSION);
        SMailName name{place, EMark::None, strTried};
        const EWriteMode mode = place == EPlace::Queue ? EWriteMode::Queue : EWriteMode::Envelope;
        const SSaveResult saved = mail.SaveNew(name.Path(), mode, {.bOrdered = true, .BeforeWaiting = nullptr});
        if (saved.result == ESaveResult::Exists)
            continue;
        if (!saved)
            Fail(name.Path(), saved.error);
        volumes.MarkWritten(PlaceDirectory(place).Text());
        if (!volumes.Flush())
            Fail(PlaceDirectory(place), Platform::LastError());
        return name;
    }
    throw CControlError(EExit::Wrong, strName + ": that name and all like it are taken");
}

/// Whoever is neither served nor chosen keeps the mail where it was. Empty, or why all of them are left in it.
std::string LeaveRest(const CMail& mail, const CAddresses& left, CHeldMailFile& file)
{
    try {
        if (left.empty())
            return file.RemoveIfStill() ? "" : "it has changed meanwhile";
    } catch (const Bex::CFileException& exception) {
        return ErrorText(exception.Error());
    }
    const CMail rest(mail, Joined(left));
    const SSaveResult saved = rest.Save(file.Name(), EWriteMode::Queue, {.bOrdered = true, .BeforeWaiting = nullptr});
    return saved ? "" : ErrorText(saved.error);
}

void Tell(const CTerminal& terminal, const SJournalOfMail& journal, const SChoice& choice)
{
    if (terminal.IsJson())
        return;
    for (const std::string& strLine : journal.lines)
        terminal.Line(strLine, EStyle::Faint);
    for (const std::string& strAddress : choice.served)
        terminal.Field("has it", strAddress);
    for (const std::string& strAddress : choice.left)
        terminal.Field("left out", strAddress, EStyle::Warning);
    for (const std::string& strAddress : choice.chosen)
        terminal.Field("gets it", strAddress, EStyle::Good);
}

} // namespace

/// As root by the owner of the queue: what is written there belongs to whoever is to read it.
int Requeue(const SOptions& options, const SRequeueQuestion& question)
{
    LoadTables(options);
    const SFailedMail failed = SFailedMail::Given(question.strName);
    const SJournalOfMail journal = SJournalOfMail::Of(failed.strName); // which another user may not ask
    SJournalOfMail::CCopies copies;
    const bool bAllCopies = SJournalOfMail::FindCopies(failed.strName, copies);
    Platform::CActingUser acting;
    if (Platform::IsAdministrator() && !acting.BecomeOwnerOf(PlaceDirectory(EPlace::Outgoing).Text()))
        Fail(PlaceDirectory(EPlace::Outgoing), Platform::LastError());
    CHeldMailFile file;
    CMail mail;
    if (const SLoadResult loaded = mail.Load(failed.strPath, file); !loaded)
        Fail(failed.strPath, loaded.error);
    RequireKnown(mail, question.recipients);
    const CAddresses served = SJournalOfMail::Served(copies, mail.MessageID().Text());
    const SChoice choice = SChoice::Of(mail, served, question.recipients);
    if (!journal.lines.empty() && !bAllCopies && question.recipients.empty())
        throw CControlError(EExit::Wrong, "the journal does not tell to its end who has it: say for whom, with --to");
    const CTerminal terminal(options);
    Tell(terminal, journal, choice);
    if (choice.chosen.empty())
        throw CControlError(EExit::Wrong, mail.Recipients().IsEmpty()
                                              ? "the mail names no recipient"
                                              : "all have it already; --to names whom to serve again");
    if (journal.lines.empty())
        CTerminal::Complain("who has it already is not known: " + journal.strWhyNone);
    if (question.recipients.empty() && !question.bConfirmed)
        AskYesNo(terminal, "Deliver it?", "say for whom, with --to, or --yes");
    const EPlace place = IsOutgoing(mail, failed.strName) ? EPlace::Outgoing : EPlace::Queue;
    const SMailName written = WriteNew(CMail(mail, Joined(choice.chosen)), place, failed.strName);
    const std::string strWhyAll = LeaveRest(mail, choice.left, file);
    if (terminal.IsJson())
        terminal.Json(
            {{"requeued", written.Shown()}, {"to", choice.chosen}, {"served", choice.served}, {"left", choice.left}});
    else
        terminal.Line("requeued as " + written.Shown());
    if (!strWhyAll.empty())
        throw CControlError(EExit::Wrong, "they get it, but " + std::string(failed.strPath.Text()) +
                                              " still names them as well: " + strWhyAll);
    return static_cast<int>(EExit::Done);
}
