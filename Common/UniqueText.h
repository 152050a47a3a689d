#pragma once

#include <string>

/// A text that no other process of this machine comes up with, and this one not again: of letters and digits. The time
/// stands first. One thread.
std::string UniqueText();
