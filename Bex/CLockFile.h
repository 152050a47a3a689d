#pragma once

#include "Bex/CFile.h"

/// A file that is deleted when its object goes while it is open: the PID file. Used by one thread.
class CLockFile : public Bex::CFile
{
public:
    ~CLockFile() override; ///< closes and deletes, ignoring errors
};
