#include "Bex/CIPv4Address.h"

namespace Bex {

bool CIPv4Address::IsLoopback() const { return Bytes()[0] == 127; }

bool CIPv4Address::IsPrivate() const // RFC 1918 3
{
    const auto& bytes = Bytes();
    return bytes[0] == 10 || (bytes[0] == 172 && (bytes[1] & 0xF0) == 16) || (bytes[0] == 192 && bytes[1] == 168);
}

bool CIPv4Address::IsLinkLocal() const { return Bytes()[0] == 169 && Bytes()[1] == 254; }

CSimpleString CIPv4Address::MakeReverseName() const
{
    const auto& bytes = Bytes();
    return CSimpleString::Formatted("%d.%d.%d.%d", bytes[3], bytes[2], bytes[1], bytes[0]);
}

} // namespace Bex
