#pragma once

#include <string>
#include <string_view>

/// A text that an outsider may have written, as a terminal may show it: what is no UTF-8, control characters (line ends
/// and tabs, too), and what turns the direction of writing become "?" each. Any thread.
std::string SafeText(std::string_view text);
