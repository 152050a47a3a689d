#pragma once

#include <string>
#include <string_view>

/// What an administrator does to one waiting mail, with the daemon or without one. Any thread.

/// What a file's name says behind the mail's name. The daemon passes over those that have any of it.
enum class EMark {
    None,
    Held,  ///< ".held": by an administrator
    Failed ///< ".failed": its delivery failed, and it could not be moved to the error directory
};
std::string_view SuffixOf(EMark mark);
EMark TakeMark(std::string_view& file); ///< leaves the mail's name

/// A bare name that ends in ".eml", without anything that leads elsewhere.
bool IsPlainMailName(std::string_view name);

/// Each takes the file, so that nobody delivers it meanwhile, and flushes the directory. The result is empty, or why
/// nothing was done: one of these when somebody has the file, there is none, or another one has the new name; else what
/// failed. The name is the mail's, without a mark.
inline constexpr char IN_DELIVERY[] = "in delivery";
inline constexpr char UNKNOWN_MAIL[] = "unknown";
inline constexpr char NAME_TAKEN[] = "another mail has its name";
std::string MarkByHand(std::string_view directory, std::string_view name, EMark old, EMark mark);
std::string RemoveByHand(std::string_view directory, std::string_view name, EMark mark); ///< with the mail's report
