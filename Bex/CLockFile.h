#pragma once

#include "Bex/CFile.h"

/// A file that is deleted when its object goes while it is open: the PID file. Used by one thread.
class CLockFile : public Bex::CFile
{
public:
    ~CLockFile() override; ///< discards
    void Discard();        ///< closes and deletes when it is open, ignoring errors, also when its directory was moved
};
