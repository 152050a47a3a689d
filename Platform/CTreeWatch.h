#pragma once

#include "Platform/CEventHandle.h"
#include "Platform/Errors.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {

enum class ETreeAction : unsigned { Added = 1, Removed = 2, Modified = 3, RenamedFrom = 4, RenamedTo = 5 };

struct STreeRecord
{
    ETreeAction action;
    std::string strName; ///< relative to the root of the tree
};

/// Watches a directory tree and collects what happens in it, in order, until it is fetched.
///
/// A background thread of this object empties the kernel's queue, so that a burst of changes does not overflow it: at
/// once, and while changes keep coming every few milliseconds. It keeps only names for which the filter holds (null:
/// all), up to nBufferBytes.
/// Directories that appear later are watched, too; what is already in them is reported as added, some of it perhaps
/// twice. Symbolic links are not followed. The two halves of a rename within the tree come together and are kept when
/// either name is wanted; a name that enters or leaves the tree is added or removed. A written file is modified when it
/// is closed; a file that is added or modified and modified again right after is only modified.
///
/// One thread at a time opens, fetches and closes; any may wait on it, also while it is opened anew. The filter runs
/// under this object's lock, on the background thread or the one that fetches: it must take no lock that is held while
/// fetching.
class CTreeWatch : public IWaitable
{
public:
    using Filter = std::function<bool(std::string_view strRelativeName)>;

    CTreeWatch();
    ~CTreeWatch() override;
    CTreeWatch(const CTreeWatch&) = delete;
    CTreeWatch& operator=(const CTreeWatch&) = delete;

    /// False: LastError. Directories of the name that is left out are told, but nothing below them is; empty: none are.
    bool Open(const char* pszRoot, size_t nBufferBytes, Filter filter, std::string_view leftOut = {});
    void Close();
    bool IsOpen() const;
    /// Moves out the records of everything that has happened, never waiting for more. False when records were lost
    /// since the last call; the records that were kept still come out. The loss is no error for an overflow of buffer
    /// or kernel queue, else what keeps a directory from being watched, of several the first.
    bool Fetch(std::vector<STreeRecord>& records, SError& loss);
    bool HasRoot() const; ///< false, too, when the root was moved away, removed or unmounted: nothing more is told
    int WaitDescriptor() const override; ///< readable while records wait or were lost

private:
    struct SState;
    CEventHandle m_ready; ///< outlives the states, so that whoever waits need not know of them
    std::unique_ptr<SState> m_pState;
};

} // namespace Platform
