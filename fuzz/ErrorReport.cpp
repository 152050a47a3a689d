// Reads any bytes as an error report: what programs are told of it is printable and has no line of the report's making.

#include "Check.h"
#include "Responder/SFailure.h"

#include <algorithm>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pBytes, size_t nSize)
{
    const SFailure failure = SFailure::FromReport({reinterpret_cast<const char*>(pBytes), nSize});
    const std::string strStatus = failure.StatusText("here.example");
    Check(failure.strStatus.starts_with("4.") || failure.strStatus.starts_with("5."));
    Check(std::count(strStatus.begin(), strStatus.end(), '\n') <= 7);
    Check(std::all_of(strStatus.begin(), strStatus.end(),
                      [](char c) { return (c >= ' ' && c <= '~') || c == '\r' || c == '\n'; }));
    Check(strStatus.find("\r\nAction: failed\r\n") != std::string::npos);
    return 0;
}
