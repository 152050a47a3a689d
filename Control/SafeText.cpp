#include "Control/SafeText.h"

#include "Bex/TextFunctions.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr char INSTEAD = '?';

struct SRange
{
    char32_t first;
    char32_t last;
};

/// Beside those that are control characters by name: what hides or reorders the text around it.
constexpr SRange HARMFUL[] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},   {0x200B, 0x200F},
    {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F},
};

bool IsHarmful(char32_t c)
{
    return std::ranges::any_of(HARMFUL, [c](const SRange& range) { return c >= range.first && c <= range.last; });
}

/// Bytes of the character that begins with this one, should it be well-formed (RFC 3629 3).
size_t LengthBy(unsigned char lead) { return lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4; }

char32_t Decoded(std::string_view character)
{
    const auto lead = static_cast<unsigned char>(character[0]);
    if (character.size() == 1)
        return lead;
    char32_t c = lead & (0x7Fu >> character.size());
    for (const char next : character.substr(1))
        c = (c << 6u) | (static_cast<unsigned char>(next) & 0x3Fu);
    return c;
}

} // namespace

std::string SafeText(std::string_view text)
{
    std::string strSafe;
    strSafe.reserve(text.size());
    while (!text.empty()) {
        const std::string_view character = text.substr(0, LengthBy(static_cast<unsigned char>(text[0])));
        const bool bWellFormed = Bex::IsUtf8(character);
        if (bWellFormed && !IsHarmful(Decoded(character)))
            strSafe += character;
        else
            strSafe += INSTEAD;
        text.remove_prefix(bWellFormed ? character.size() : 1);
    }
    return strSafe;
}
