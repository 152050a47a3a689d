#pragma once

#include <string>
#include <string_view>

/// What an administrator does to one waiting mail, with the daemon or without one.
enum class EByHand {
    Hold, ///< takes the name away from the daemon: "<name>.held" is seen by nobody
    Remove
};

inline constexpr std::string_view HELD_SUFFIX = ".held";

/// A bare name that ends in ".eml", without anything that leads elsewhere.
bool IsPlainMailName(std::string_view name);

/// Takes the file, so that nobody delivers it meanwhile, and does it; the directory is flushed. The result is empty, or
/// why nothing was done: "in delivery" when somebody has the file, "unknown" when there is none. Any thread.
std::string ActByHand(std::string_view directory, std::string_view name, EByHand what);
