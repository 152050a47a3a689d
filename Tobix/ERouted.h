#pragma once

/// How the delivery to one recipient ended.
enum class ERouted {
    Done,
    Failed, ///< logged
    Busy,   ///< has to be tried again: something is in use or short, or a stop cut it short
    Held    ///< the same, because another host holds the account
};
