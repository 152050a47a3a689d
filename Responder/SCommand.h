#pragma once

#include "Bex/CSimpleString.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the command line asks for:
///
///   responder.exe MAIL -t REPORT [-b full|header] [-ib] [-s] [-k] [-to ADDRESS] -o           a bounce
///   responder.exe MAIL -t TEMPLATE -o OUTPUT [-ib] [-s] [-k]                                 an automatic reply
///
/// -o   without a value: tells that MAIL came back, by a mail that goes into the queue directory;
///      with a value: answers MAIL with the template's text, by a mail of that name
/// -t   the error report of the delivery, or the template of the reply
/// -b   what of the returned mail goes with the notification: all of it, or its header; nothing without it
/// -ib  "ignore bulk": bulk mail (Precedence: bulk, list or junk) bounces like any other; without it, it is only
///      disposed of. Means nothing to a reply, which bulk mail never gets
/// -to  who is told instead of the sender
/// -k   keeps MAIL and REPORT, which are deleted otherwise
/// -s   silent: nothing on standard output; a failure still has its line on standard error
struct SCommand
{
    enum class EReturn { Nothing, Header, Full };

    Bex::CSimpleString strMail;
    Bex::CSimpleString strText; ///< report or template
    Bex::CSimpleString strOutput;
    std::string strTo; ///< addresses, parted by commas or semicolons
    EReturn returned = EReturn::Nothing;
    bool bIgnoreBulk = false;
    bool bSilent = false;
    bool bKeep = false;

    bool IsBounce() const { return strOutput.IsEmpty(); }
    /// Nothing when the arguments (without the program's name) are not of those forms.
    static std::optional<SCommand> Parse(const std::vector<std::string_view>& arguments);
};
