#pragma once

/// Where the daemon's log lines go. Main thread, or the one that restarts the daemon. Each call replaces the
/// destinations of the main log and of the traffic log, and tells the crash reports of the former.
namespace LogSetUp {

void ToConsole();
void ToLocalSyslog();      ///< until the configuration is known
void ToConfiguredSyslog(); ///< as the configuration's Log... and TrafficLog... keys say

} // namespace LogSetUp
