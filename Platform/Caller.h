#pragma once

#include <string>

/// Who started this program, for one that anybody may start and whose file lends it the rights of a group. One thread.
namespace Platform {

struct SCaller
{
    unsigned nUser = 0; ///< the real one
    std::string strLogin;
    std::string strFullName; ///< empty when nobody told it
};

bool HasLentRights(); ///< more than the caller's: what the caller chose, such as the environment, must not count
/// First of all: nothing that the caller has prepared has a hold on this program. Closes inherited files but the
/// standard ones, leaves no core, and with lent rights no environment. Permissions of files are as they are asked for.
void ForgetSurroundings();
bool FindCaller(SCaller& caller); ///< false: the user has no name

/// While it lives, the program has only the caller's group.
class CLentRightsLaidDown
{
public:
    CLentRightsLaidDown();
    ~CLentRightsLaidDown();
    CLentRightsLaidDown(const CLentRightsLaidDown&) = delete;
    CLentRightsLaidDown& operator=(const CLentRightsLaidDown&) = delete;

private:
    unsigned m_nLent;
};

} // namespace Platform
