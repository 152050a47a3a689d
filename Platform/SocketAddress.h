#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace Platform {

/// Address families as the system numbers them.
inline constexpr int FAMILY_NONE = 0;
inline constexpr int FAMILY_IPV4 = 2;
inline constexpr int FAMILY_IPV6 = 23;

/// An address and port without any system's layout. A value.
struct SSocketAddress
{
    int iFamily = FAMILY_NONE;
    std::array<uint8_t, 16> bytes{}; ///< network order; IPv4 uses the first four
    uint16_t wPort = 0;              ///< host order
    uint32_t dwScope = 0;            ///< of an IPv6 link-local address

    bool operator==(const SSocketAddress&) const = default;
};

/// Text and address; any thread. False when the text is no literal of that family: LastSocketError.
bool ParseAddress(int iFamily, const char* pszText, SSocketAddress& address);
std::string AddressText(const SSocketAddress& address);
} // namespace Platform
