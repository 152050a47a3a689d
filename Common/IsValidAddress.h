#pragma once

#include <string_view>

/// Whether a recipient can be handed to a mail server: dot-atoms around at most one "@" (RFC 5322 3.2.3); brackets
/// may stand in the domain, so that address literals pass. An address without domain is valid. Any thread.
bool IsValidAddress(std::string_view address);
