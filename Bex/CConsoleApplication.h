#pragma once

#include "Bex/CProcess.h"

namespace Bex {

/// A program that just runs. Its one object is a static one, so that the entry point finds it.
class CConsoleApplication : public CProcess
{
public:
    CConsoleApplication();
    ~CConsoleApplication() override;

    static CConsoleApplication* Instance(); ///< null when there is none
};

} // namespace Bex
