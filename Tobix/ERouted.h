#pragma once

/// How the delivery to one recipient ended.
enum class ERouted {
    Done,
    Failed, ///< logged
    Busy    ///< nothing was stored: something is in use or short, and will not be for ever
};
