#pragma once

#include "Bex/CList.h"
#include "Bex/CSimpleString.h"

#include <string_view>

/// Small stateless text functions that several subsystems share. Any thread.
namespace Bex {

/// White space of the C library: space, tab, LF, VT, FF, CR.
constexpr bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

std::string_view TrimmedView(std::string_view text);      ///< without white space at both ends
bool EqualNoCase(std::string_view a, std::string_view b); ///< folds ASCII letters only
bool StartsWithNoCase(std::string_view text, std::string_view prefix);

/// Well-formed (RFC 3629), without surrogates and overlong forms.
bool IsUtf8(std::string_view text);

/// Splits at every character that is one of the separators and appends every non-empty piece in order, trimmed if
/// asked (a piece that trimming empties is appended empty).
void Tokenize(std::string_view text, std::string_view separators, CList<CSimpleString>& list, bool bTrim);

/// Takes the first line off the text and gives it without its end, LF or CR LF. An end at the end begins no other line.
std::string_view TakeLine(std::string_view& text);

/// Without one pair of enclosing double quotes, when there is one.
std::string_view Unquote(std::string_view text);

void MaskControls(char* pBegin, char* pEnd); ///< control characters, line ends among them, become "?"

/// "*" in the pattern matches any run of characters, "?" exactly one; a text that holds "*" or "?" never matches.
/// Takes at most length times length steps, whatever the pattern.
bool WildcardMatchCase(std::string_view text, std::string_view pattern);
bool WildcardMatch(std::string_view text, std::string_view pattern); ///< folds ASCII letters

/// The name of the lock around an account settings file: the last 259 characters of its path, backslashes to slashes.
CSimpleString AccountLockName(std::string_view path);

/// A directory and a name as one path; a name that is absolute (begins with "/" or holds ":" as its second
/// character) is used unchanged, and so is any name without a directory.
CSimpleString JoinPath(std::string_view directory, std::string_view name);
/// A name that was found in a directory, as a path: never taken as absolute, whatever it looks like. Without a
/// directory the name alone.
CSimpleString PathBelow(std::string_view directory, std::string_view name);
std::string_view NameOf(std::string_view path); ///< what follows the last slash

} // namespace Bex
