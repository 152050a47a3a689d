#pragma once

#include <memory>

namespace Platform {

/// While it lives this process acts as another user, with that user's groups; afterwards as itself again. For the
/// whole process, so only while it has one thread. Owned by who asked. Operations answer false and set LastError, and
/// the process then acts as before.
class CActingUser
{
public:
    CActingUser();
    ~CActingUser();
    CActingUser(const CActingUser&) = delete;
    CActingUser& operator=(const CActingUser&) = delete;

    bool Become(const char* pszUser);        ///< SYS_FILE_NOT_FOUND: there is none of that name
    bool BecomeOwnerOf(const char* pszPath); ///< of what a symbolic link leads to

private:
    struct SIdentity;
    bool Become(const SIdentity& wanted);

    std::unique_ptr<SIdentity> m_pBefore; ///< null: nothing to go back to
};

bool IsAdministrator(); ///< this process acts as root
bool UserExists(const char* pszUser);

} // namespace Platform
