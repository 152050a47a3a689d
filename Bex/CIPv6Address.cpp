#include "Bex/CIPv6Address.h"

namespace Bex {

bool CIPv6Address::IsLoopback() const
{
    constexpr std::array<uint8_t, 16> LOOPBACK = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    return Bytes() == LOOPBACK;
}

CSimpleString CIPv6Address::MakeReverseName() const
{
    constexpr char DIGITS[] = "0123456789abcdef";
    CSimpleString strName;
    for (auto it = Bytes().rbegin(); it != Bytes().rend(); ++it) {
        const char nibbles[] = {DIGITS[*it & 0x0F], '.', DIGITS[*it >> 4], '.'};
        strName.Append(std::string_view(nibbles, sizeof(nibbles)));
    }
    return strName.SubString(0, strName.Length() - 1);
}

} // namespace Bex
