#pragma once

#include <cstdio>
#include <string_view>

/// Writes a text that may quote an outsider to standard output or standard error: control characters other than line
/// ends and tabs become "?". Any thread.
void WriteConsole(std::FILE* pStream, std::string_view text);
