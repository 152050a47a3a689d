#pragma once

#include "Bex/CSimpleString.h"

/// Where the local agent's mail goes; read once, in this system's form of paths. A value.
struct SMailDirectories
{
    Bex::CSimpleString strQueue;
    Bex::CSimpleString strError;
    Bex::CSimpleString strFilter;
    Bex::CSimpleString strOutgoing;
    Bex::CSimpleString strIntercept;

    static SMailDirectories FromConfiguration();
};
