#pragma once

#include <string>
#include <string_view>

namespace Platform {

/// The absolute path of a program. A bare name is looked for beside the executable, in the working directory, then
/// along PATH; a name with a slash is taken as it is. Empty when it is not there or may not be run: errno tells.
std::string FindProgram(std::string_view strName);

} // namespace Platform
