#pragma once

#include "Bex/CFile.h"

/// A file that is deleted when its object goes while it is open: the PID file.
class CLockFile : public Bex::CFile
{
public:
    ~CLockFile() override; ///< closes and deletes, ignoring errors
};
