#pragma once

#include <string>
#include <string_view>
#include <vector>

/// A program's arguments as one text, and back. Stateless, any thread.
namespace Platform {

/// Puts one argument into double quotes for a command line, escaping quotes and the backslashes before them.
std::string QuoteArgument(std::string_view strArgument);
/// The arguments of a command line: blanks separate, double quotes keep together, \" is a quote.
std::vector<std::string> SplitCommandLine(std::string_view strCommandLine);

} // namespace Platform
