#pragma once

#include "Bex/TextFunctions.h"

#include <span>
#include <string_view>

/// The header fields of a mail file by which the daemon learns its envelope and what else it takes from nobody but its
/// own kind. Stateless, any thread.
namespace EnvelopeFields {

inline constexpr std::string_view SENDER[] = {"X-Envelope-From", "Envelope-From"};
inline constexpr std::string_view RECIPIENTS[] = {"X-Envelope-To", "Envelope-To"};
/// Those that other mail servers write.
inline constexpr std::string_view FOREIGN_RECIPIENTS[] = {"X-Delivered-To", "X-Original-To", "X-Rcpt-To", "X-Real-To",
                                                          "X-Receiver"};
/// Further ones that say who sent a mail, for whom, or as whom it may leave.
inline constexpr std::string_view TRUSTED[] = {"X-Sender", "Return-Path", "Delivered-To", "X-Authenticated-As",
                                               "X-Resent-For"};

inline bool IsOneOf(std::string_view name, std::span<const std::string_view> names)
{
    for (const std::string_view candidate : names) {
        if (Bex::EqualNoCase(name, candidate))
            return true;
    }
    return false;
}

/// Such a field of a mail that anybody may hand in means nothing.
inline bool IsForbidden(std::string_view name)
{
    return IsOneOf(name, SENDER) || IsOneOf(name, RECIPIENTS) || IsOneOf(name, FOREIGN_RECIPIENTS) ||
           IsOneOf(name, TRUSTED);
}

} // namespace EnvelopeFields
