#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Figures as people read them. Any thread.

std::string SizeText(uint64_t nBytes);     ///< "512 B", "1.5 KiB", "20 MiB"
std::string AgeText(int64_t iSeconds);     ///< "42s", "3m 10s", "5h 2m", "3d 4h"; a negative one as "0s"
std::string MomentText(int64_t iSeconds);  ///< local time of seconds since 1970-01-01 UTC: "2026-11-25 11:04:09"
std::string InstantText(int64_t iSeconds); ///< the same in UTC for programs (RFC 3339): "2026-11-25T10:04:09Z"

/// Seconds of a span of time as people write it: "90", "90s", "15m", "12h", "3d", "1w"; nothing for anything else.
std::optional<int64_t> SecondsIn(std::string_view span);
