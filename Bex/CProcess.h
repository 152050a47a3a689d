#pragma once

#include "Bex/CSimpleString.h"

#include <string>
#include <vector>

namespace Bex {

/// What the entry point hands to the one application object of a program. Written before any thread starts.
class CProcess
{
public:
    CProcess() = default;
    virtual ~CProcess() = default;
    CProcess(const CProcess&) = delete;
    CProcess& operator=(const CProcess&) = delete;

    virtual int Run() = 0;

    /// Called by the entry point. Raises COutOfMemoryException when the executable's path is too long.
    void Initialize(int iArguments, char** ppszArguments, char** ppszEnvironment);

    int ArgumentCount() const { return m_iArguments; }
    /// The program itself is number 0; null beyond the last.
    const char* Argument(int iIndex) const;
    std::vector<std::string> Arguments() const; ///< those after the program
    char** Environment() const { return m_ppszEnvironment; }
    /// The directory of the executable; empty when it is not known.
    const CSimpleString& ProgramDirectory() const { return m_strProgramDirectory; }

private:
    void FindProgramDirectory();

    int m_iArguments = 0;
    char** m_ppszArguments = nullptr;
    char** m_ppszEnvironment = nullptr;
    CSimpleString m_strProgramDirectory;
};

} // namespace Bex
