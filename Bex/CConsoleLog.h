#pragma once

#include "Bex/CCriticalSection.h"
#include "Bex/ILogDestination.h"

namespace Bex {

/// Log lines on the console of the process, whole and in colour where it shows colours: errors and worse on standard
/// error, the rest on standard output. Any thread.
class CConsoleLog : public ILogDestination
{
public:
    CConsoleLog();
    void Write(int iLevel, const char* pszText, unsigned dwReserved) override;
    void Flush() override {}

private:
    bool m_bErrorConsole;  ///< standard error shows colours
    bool m_bOutputConsole; ///< standard output shows colours
    CCriticalSection m_lock;
};

} // namespace Bex
