#pragma once

#include <string>

/// What holds for every command.
struct SOptions
{
    std::string strConfiguration; ///< the configuration's file; empty: the one that the daemon reads by default
    bool bJson = false;
    bool bNoColour = false;
};
