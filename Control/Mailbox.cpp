#include "Control/Mailbox.h"

#include "Bex/CFileException.h"
#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Control/CTerminal.h"
#include "Control/Figures.h"
#include "Control/LoadConfiguration.h"
#include "Control/LoadTables.h"
#include "Control/SMailboxCount.h"

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
