#pragma once

namespace Bex {

/// Takes a thread that was given up out of what it is at, to its end. Raised by CThread::EndIfAbandoned and taken by
/// the thread's procedure alone: whoever catches everything passes it on. It is no failure of anything, so it derives
/// from none of them.
class CAbandonment
{};

} // namespace Bex
