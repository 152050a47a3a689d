#pragma once

#include "Bex/TextFunctions.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

/// For hashed containers whose keys ignore ASCII case.
struct SNoCaseHash
{
    size_t operator()(std::string_view text) const // FNV-1a
    {
        uint64_t ui64Hash = 0xcbf29ce484222325u;
        for (const char c : text)
            ui64Hash = (ui64Hash ^ static_cast<unsigned char>(Bex::LowerAscii(c))) * 0x100000001b3u;
        return ui64Hash;
    }
};

struct SNoCaseEqual
{
    bool operator()(std::string_view a, std::string_view b) const { return Bex::EqualNoCase(a, b); }
};
