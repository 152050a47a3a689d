#pragma once

#include "Bex/CConfigFile.h"

/// The relay hosts to use instead of a domain's mail exchangers. Shared between threads.
class CSmartHosts : public Bex::CConfigFile
{
public:
    ~CSmartHosts() override = default;
};
