#include "Control/Mailbox.h"

#include "Bex/CFileException.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Control/CTerminal.h"
#include "Control/Figures.h"
#include "Control/LoadConfiguration.h"
#include "Control/LoadTables.h"
#include "Control/SMailboxCount.h"
#include "Tobix/SRecipientRoute.h"

#include <algorithm>

namespace {

SMailboxCount CountOf(const Bex::CSimpleString& strDirectory)
{
    try {
        return SMailboxCount::Of(strDirectory);
    } catch (const Bex::CFileException& exception) {
        throw CControlError(EExit::Wrong, std::string(strDirectory.Text()) + ": " + ErrorText(exception.Error()));
    }
}

/// Every key of the account with its value; those that are not written have their default.
nlohmann::ordered_json SettingsOf(const Bex::CSimpleString& strDirectory)
{
    Bex::CConfigFile account;
    const Bex::CSimpleString strFile = Bex::JoinPath(strDirectory, "config");
    const Platform::SError error = LoadError(account, strFile);
    if (error.dwSysError != 0)
        throw CControlError(EExit::Wrong, std::string(strFile.Text()) + ": " + ErrorText(error));
    auto settings = nlohmann::ordered_json::object();
    for (const Bex::SConfigKey& key : AccountKeys::TABLE)
        settings[key.pszName] = account.GetString(key.pszName, key.whenMissing.pszText).Text();
    if (!account.IsSet(AccountKeys::QUOTA)) // which the configuration gives then
        settings[AccountKeys::QUOTA.Name()] = std::to_string(Config().GetInt(Keys::QUOTA));
    return settings;
}

std::vector<std::string> AliasesOf(const Bex::CSimpleString& strUser)
{
    std::vector<std::string> aliases;
    const Bex::CScopedLock lock(Aliases().LockObject());
    for (CAliases::CIterator node(Aliases()); node; ++node) {
        if (node->value == strUser)
            aliases.emplace_back(node->key.Text());
    }
    std::ranges::sort(aliases);
    return aliases;
}

} // namespace

int ListMailboxes(const SOptions& options)
{
    LoadConfiguration(options);
    LoadUsers();
    const CTerminal terminal(options);
    STable table{{{"USER"}, {"MAILS", true}, {"SIZE", true}, {"LAST CHANGE"}, {"DIRECTORY"}}, {}};
    auto list = nlohmann::ordered_json::array();
    EExit exit = EExit::Done;
    for (const Bex::CSimpleString& strName : Users().Names()) {
        const Bex::CSimpleString strDirectory = Users().UserDirectory(strName);
        try {
            const SMailboxCount count = SMailboxCount::Of(strDirectory);
            table.rows.push_back({{strName.Text(), EStyle::Strong},
                                  std::to_string(count.nMails),
                                  SizeText(count.nBytes),
                                  MomentText(count.iLastChange),
                                  strDirectory.Text()});
            list.push_back({{"user", strName.Text()},
                            {"directory", strDirectory.Text()},
                            {"mails", count.nMails},
                            {"bytes", count.nBytes},
                            {"last_change", InstantText(count.iLastChange)}});
        } catch (const Bex::CFileException& exception) {
            CTerminal::Complain(std::string(strDirectory.Text()) + ": " + ErrorText(exception.Error()));
            exit = EExit::Wrong;
        }
    }
    if (terminal.IsJson())
        terminal.Json(list);
    else
        terminal.Table(table);
    return static_cast<int>(exit);
}

int ShowMailbox(const SOptions& options, const std::string& strUser)
{
    LoadTables(options);
    const SRecipientRoute route = SRecipientRoute::Of(Bex::CSimpleString(strUser).Lowered());
    if (route.way != SRecipientRoute::EWay::Mailbox || !Users().IsUser(route.strTarget))
        throw CControlError(EExit::Wrong, strUser + " leads to no mailbox");
    const Bex::CSimpleString strDirectory = Users().UserDirectory(route.strTarget);
    const SMailboxCount count = CountOf(strDirectory);
    const nlohmann::ordered_json settings = SettingsOf(strDirectory);
    const std::vector<std::string> aliases = AliasesOf(route.strTarget);
    const CTerminal terminal(options);
    if (terminal.IsJson()) {
        terminal.Json({{"user", route.strTarget.Text()},
                       {"directory", strDirectory.Text()},
                       {"mails", count.nMails},
                       {"bytes", count.nBytes},
                       {"last_change", InstantText(count.iLastChange)},
                       {"aliases", aliases},
                       {"settings", settings}});
        return static_cast<int>(EExit::Done);
    }
    terminal.Field("user", route.strTarget.Text(), EStyle::Strong);
    terminal.Field("directory", strDirectory.Text());
    terminal.Field("mails", std::to_string(count.nMails) + ", " + SizeText(count.nBytes));
    terminal.Field("last change", MomentText(count.iLastChange));
    for (const std::string& strAlias : aliases)
        terminal.Field("alias", strAlias);
    for (const auto& [strKey, value] : settings.items())
        terminal.Field(strKey, value.get<std::string>());
    return static_cast<int>(EExit::Done);
}
