#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the command line asks for, in the forms in which programs call sendmail:
///
///   tobix-inject [-t] [-i] [-f ADDRESS] [-F NAME] [ADDRESS ...]
///
/// Flags can be joined, values stand behind their letter or in the next argument, options also behind addresses unless
/// "--" ends them. What belongs to the ways of another system has no effect; what asks for another work is refused.
struct SCommand
{
    bool bReadsMail = true;         ///< else there is nothing to be done
    bool bRecipientsInMail = false; ///< -t: beside those of the command line
    bool bDotEnds = true;           ///< a line with a dot alone ends the mail; not with -i
    std::optional<std::string> sender;
    std::optional<std::string> name;
    std::vector<std::string_view> recipients;

    /// CRefusal when the arguments (without the program's name) cannot be understood.
    static SCommand Parse(const std::vector<std::string_view>& arguments);
};
