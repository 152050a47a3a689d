#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Platform {

/// Runs a program, which is found as CChildProcess finds it, and collects what it writes to standard output; its errors
/// are dropped. Waits for it: one that takes longer than dwMillis or writes more than nMost bytes is killed, and what
/// it has written until then, nMost bytes at most, is the answer, and not complete. False: it cannot be started, or
/// ended with an exit code other than 0: LastError. Only while this process has no other child that somebody waits for
/// by any number.
bool ReadProgramOutput(const std::vector<std::string>& arguments, size_t nMost, unsigned dwMillis,
                       std::string& strOutput, bool* pbComplete = nullptr);

} // namespace Platform
