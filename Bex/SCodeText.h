#pragma once

#include <cstddef>
#include <cstdint>

namespace Bex {

/// One row of the texts that exceptions show for their codes.
struct SCodeText
{
    uint32_t dwCode;
    const char* pszText;
};

/// The text of a code; "unknown error" for one that has no row.
template <size_t N>
constexpr const char* TextOfCode(const SCodeText (&texts)[N], uint32_t dwCode)
{
    for (const SCodeText& row : texts) {
        if (row.dwCode == dwCode)
            return row.pszText;
    }
    return "unknown error";
}

} // namespace Bex
