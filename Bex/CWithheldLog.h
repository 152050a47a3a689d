#pragma once

#include "Bex/CLogPointer.h"

#include <string>
#include <vector>

namespace Bex {

/// Keeps back what its own thread logs while it lives: an attempt that is repeated until it succeeds tells about the
/// one that changed something. Lines that nobody has asked for go with the object. One at a time on a thread.
class CWithheldLog
{
public:
    CWithheldLog();
    ~CWithheldLog();
    CWithheldLog(const CWithheldLog&) = delete;
    CWithheldLog& operator=(const CWithheldLog&) = delete;

    void Tell(); ///< writes the lines, and lets those that follow pass

    /// For the log: true when the calling thread's line is kept back.
    static bool Take(CLogPointer& log, int iLevel, const char* pszText);

private:
    struct SLine
    {
        CLogPointer* pLog;
        int iLevel;
        std::string strText;
    };
    std::vector<SLine> m_lines; ///< bounded: what comes beyond is lost
};

} // namespace Bex
