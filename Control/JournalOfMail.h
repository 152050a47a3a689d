#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The log's lines about one mail, out of the journal.
struct SJournalOfMail
{
    std::vector<std::string> lines; ///< oldest first; of very many the last ones
    std::string strWhyNone;         ///< that the journal cannot be asked, or has none; empty when there are lines

    /// By the name of its file, and by the other names that the mail of that message id had on its way here and has had
    /// since; without an id by the one name only. Waits for the journal, 20 s at most each time it is asked.
    static SJournalOfMail Of(std::string_view name, std::string_view messageID = {});

    /// What it says of one copy. A value.
    struct SCopy
    {
        std::string strMessage;
        std::vector<std::string> recipients; ///< one, and where that one's mail goes
    };
    using CCopies = std::vector<SCopy>;
    static bool FindCopies(std::string_view name, CCopies& copies); ///< likewise; false when there may be others
    /// The recipients who have their copies of the mail: another one of the same name has another message id.
    static std::vector<std::string> Served(const CCopies& copies, std::string_view messageID);
};
