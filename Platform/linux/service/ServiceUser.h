#pragma once

namespace Platform {

/// The account that installed services run as; packaging/sysusers.d/tobix.conf describes the same one.
inline constexpr const char* SERVICE_USER = "tobix";

bool EnsureServiceUser(); ///< creates the account when it is missing; false: LastError

} // namespace Platform
