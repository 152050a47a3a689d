#pragma once

#include <cstdint>

namespace Platform {

/// That this process works on a directory of mail: any number may share a claim, as daemons do, or one may have it to
/// itself, as a tool does that must not meet any. Advisory, and gone with its process. Owned and used by one thread;
/// the directory's volume cannot be unmounted meanwhile. Failures set LastError, busy when somebody else's is in the
/// way.
class CDirectoryClaim
{
public:
    CDirectoryClaim() = default;
    ~CDirectoryClaim() { Drop(); }
    CDirectoryClaim(const CDirectoryClaim&) = delete;
    CDirectoryClaim& operator=(const CDirectoryClaim&) = delete;

    bool TakeShared(const char* pszDirectory); ///< in place of the one before
    bool TakeExclusive(const char* pszDirectory);
    void Drop();
    /// A process that was in the way of the last try that failed; 0 when nobody can tell.
    int Holder() const { return m_iHolder; }

private:
    bool Take(const char* pszDirectory, int iOperation);

    int m_iDescriptor = -1;
    int m_iHolder = 0;
};

} // namespace Platform
