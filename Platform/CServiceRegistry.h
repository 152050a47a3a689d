#pragma once

#include "Platform/ServiceUnit.h"

#include <string_view>

namespace Platform {

/// The installed services: unit files in one directory. Operations answer false and set LastError on failure; no object
/// is kept open. Used by one thread.
class CServiceRegistry
{
public:
    CServiceRegistry(); ///< the unit directory of the system, or the one that TOBIX_UNIT_DIR names

    bool Open() const; ///< may services be added and removed?
    bool Contains(std::string_view strShortName) const;
    bool Create(const SServiceEntry& entry) const; ///< automatic start; takes it back when it fails half-way
    bool IsRunning(std::string_view strShortName) const;
    bool Stop(std::string_view strShortName) const; ///< waits for it
    bool Delete(std::string_view strShortName) const;

private:
    std::string m_strDirectory;
    bool m_bManagerRuns; ///< and reads that directory; else only the files are kept
};

} // namespace Platform
