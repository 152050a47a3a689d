#pragma once

#include "Platform/FileIdentity.h"

#include <string_view>

namespace Platform {

/// Gives a file the content without a flush and without a new file, where a power cut can leave only the old or the new
/// one: both are of one length and differ within one sector of the disk. False, and nothing is changed, for any other
/// content, a link, a file with several names, and one that is in use; false also when that fails. Any thread.
bool OverwriteInPlace(const char* pszPath, std::string_view content, SFileIdentity& written);

} // namespace Platform
