#pragma once

#include "Bex/CSimpleString.h"
#include "Common/CMail.h"

#include <cstdint>
#include <functional>

/// The Maildir of an account: a directory of that name with tmp, new and cur in it. A mail is written in tmp and stands
/// in new once it is complete; from there on it belongs to the programs that read mail. Made for one delivery and used
/// by the local agent's thread, under the account's lock.
class CMaildir
{
public:
    static constexpr int64_t LEFTOVER_SECONDS = 36L * 3600; ///< what is older in tmp is nobody's any more

    explicit CMaildir(const Bex::CSimpleString& strAccountDirectory);

    const Bex::CSimpleString& NewDirectory() const { return m_strNew; }
    bool Prepare() const; ///< makes what is missing; false (LastError), too, when something else, or a link, is there
    void RemoveLeftovers() const;

    /// Gives the path of the complete mail in tmp to Tag, which may change the mail and says whether it is to be
    /// stored; else somebody has to try again. Null: nobody changes it, and its name tells its size.
    /// The number goes into the name, and the next one is left. The path is that in new, or what failed.
    SSaveResult SaveNew(const CMail& mail, EWriteMode mode, const std::function<bool(const Bex::CSimpleString&)>& Tag,
                        uint32_t& dwNumber, Bex::CSimpleString& strPath) const;

private:
    SSaveResult MoveToNew(const Bex::CSimpleString& strWritten, bool bNameTellsSize, Bex::CSimpleString& strPath) const;

    Bex::CSimpleString m_strRoot, m_strTmp, m_strNew;
};
