#pragma once

#include "Common/CMD5.h"
#include "Common/CSHA1.h"

#include <string_view>

/// Keyed digests of a text. Stateless, any thread.

CMD5::Digest HmacMd5(std::string_view text, std::string_view key); ///< RFC 2104
/// The RFC 2104 construction with this system's own lengths: a long key and the inner digest count with their first
/// 16 bytes only. Differs from the RFC's value for every text and key; both ends of CRAM-SHA1 agree on it.
CSHA1::Digest HmacSha1(std::string_view text, std::string_view key);
