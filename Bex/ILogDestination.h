#pragma once

namespace Bex {

/// Where log lines go. Levels are syslog severities (RFC 5424 6.2.1): 3 error, 4 warning, 5 notice, 6 info.
/// Any thread may write.
class ILogDestination
{
public:
    virtual void Write(int iLevel, const char* pszText, unsigned dwReserved) = 0;
    virtual void Flush() = 0;
    virtual ~ILogDestination() = default;
};

} // namespace Bex
