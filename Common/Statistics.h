#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// What the daemon has done since its start, counted for whoever looks at it. Process-wide; any thread, at the cost of
/// one atomic addition.
namespace Statistics {

enum class ECount {
    LocalMails,       ///< queue files that were delivered
    LocalCopies,      ///< stored in mailboxes
    OutgoingCopies,   ///< for other hosts
    Filtered,         ///< caught by a content filter
    LocalFailed,      ///< queue files for the error directory
    LoopsEnded,       ///< of these, those that went round
    RemoteDelivered,  ///< taken by another host
    RemoteDeferred,   ///< attempts after which the mail is tried again
    BouncedTemporary, ///< given up after AutoTransTime
    BouncedPermanent, ///< refused for good
    RemoteFailed,     ///< outgoing files for the error directory
    Sessions,         ///< connections to other hosts
    SecureSessions,   ///< of these with TLS
    Number
};

enum class EDuration {
    Attempt,   ///< to send one mail
    LocalMail, ///< from the opening of a queue file to its last copy
    Number
};

inline constexpr std::array<const char*, static_cast<size_t>(ECount::Number)> COUNT_NAMES = {
    "local_mails",   "local_copies",     "outgoing_copies", "filtered",    "local_failed",
    "loops_ended",   "remote_delivered", "remote_deferred", "bounced_4xx", "bounced_5xx",
    "remote_failed", "sessions",         "sessions_tls"};
inline constexpr std::array<const char*, static_cast<size_t>(EDuration::Number)> DURATION_NAMES = {
    "attempt_seconds", "local_mail_seconds"};
/// The upper bounds of a histogram's fields, in microseconds; one more field counts what took longer.
inline constexpr std::array<uint64_t, 10> BOUNDS = {1'000,     10'000,    50'000,     100'000,    500'000,
                                                    1'000'000, 5'000'000, 30'000'000, 60'000'000, 300'000'000};

/// Of one kind of duration. A value.
struct SHistogram
{
    std::array<uint64_t, BOUNDS.size() + 1> counts{}; ///< field by field, not added up
    uint64_t ui64SumMicros = 0;
};

void Count(ECount what);
uint64_t CountOf(ECount what);
void Took(EDuration what, uint64_t ui64Micros);
SHistogram HistogramOf(EDuration what);

} // namespace Statistics
