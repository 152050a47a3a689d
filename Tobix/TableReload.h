#pragma once

class CInterceptor;

/// Loads those tables again whose files changed; domains, users and aliases together, and also when a user's
/// "password" file in the mailbox tree changed. Main thread. Failures are logged, and the old or partly loaded table
/// stays in use; false then. The interceptor may be null.
bool ReloadChangedTables(bool bMailboxTreeChanged, CInterceptor* pInterceptor);
