// Takes any bytes as the data of each kind of DNS record that holds more than an address.

#include "Bex/DnsRecords.h"
#include "Check.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pBytes, size_t nSize)
{
    const std::string_view data(reinterpret_cast<const char*>(pBytes), nSize);
    const auto isPlain = [](char c) { return c > ' ' && c <= '~'; };
    Bex::CSimpleString strName;
    if (Bex::DecodeDnsName(data, strName)) {
        Check(!strName.IsEmpty() && strName.Length() <= 4 * nSize);
        Check(std::all_of(strName.View().begin(), strName.View().end(), isPlain));
    } else {
        Check(strName.IsEmpty());
    }
    Bex::SMailExchange exchange;
    if (Bex::DecodeDnsMX(data, exchange)) {
        Bex::CSimpleString strAgain;
        Check(Bex::DecodeDnsName(data.substr(2), strAgain) && strAgain == exchange.strName);
    }
    Bex::CSimpleString strText;
    if (Bex::DecodeDnsTXT(data, strText))
        Check(strText.Length() <= nSize);
    return 0;
}
