#pragma once

#include "Platform/CFileHandle.h"

namespace Platform {

/// Tells all other openers how this one uses the file, for as long as the descriptor is open. False when one of them
/// denies that, or when what they do is denied by this one (errno EAGAIN); then it must be closed.
bool ClaimShare(int iDescriptor, const SOpenMode& mode);

/// In place of the claim: others may open the file as they like, and are only told that it is not finished.
bool ClaimUnfinished(int iDescriptor, const SOpenMode& before);
bool IsUnfinished(int iDescriptor); ///< in the hands of somebody else, or nobody can tell; errno EAGAIN

/// Between the two claims nobody gets what both of them deny.
bool ReplaceClaim(int iDescriptor, const SOpenMode& before, const SOpenMode& after);

} // namespace Platform
