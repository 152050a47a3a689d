#pragma once

#include <string_view>

/// The console of this process. Thread-safe as far as single calls go; CConsoleLog serialises whole lines.
namespace Platform {

enum class EColour { Grey, BrightGreen, Yellow, BrightRed };

bool HasConsole(bool bErrorStream); ///< the stream is a terminal that shows colours
bool HasKeyboard();                 ///< somebody can answer: standard input is a terminal
/// Writes everything to standard output or standard error at once, unbuffered, in the colour when bColoured.
void WriteConsole(bool bErrorStream, std::string_view strText, EColour colour, bool bColoured);

} // namespace Platform
