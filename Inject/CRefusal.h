#pragma once

#include <stdexcept>
#include <string>

/// What a caller is told by the exit code, as sysexits.h names them. What the administrator can mend is temporary:
/// whoever hands a mail over keeps it and comes again.
enum class EExit { Done = 0, Usage = 64, BadData = 65, NoUser = 67, Temporary = 75 };

/// No mail was written, and why.
class CRefusal : public std::runtime_error
{
public:
    CRefusal(EExit exit, const std::string& strWhy) : std::runtime_error(strWhy), m_exit(exit) {}
    EExit Exit() const { return m_exit; }

private:
    EExit m_exit;
};
