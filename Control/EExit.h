#pragma once

/// What the program's exit code says; scripts rely on the numbers, and the manual lists them.
enum class EExit {
    Done = 0,
    Wrong = 1,   ///< something is wrong, or was not found
    Misused = 2, ///< the command line cannot be understood
    Refused = 3, ///< not now: in delivery, held by somebody else, not confirmed
    NoDaemon = 4 ///< no daemon answers
};
