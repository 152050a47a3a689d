#include "Bex/CProcess.h"

#include "Bex/COutOfMemoryException.h"
#include "Bex/FrozenLine.h"
#include "Platform/FileSystem.h"

#include <string>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CProcess";
constexpr FrozenLine PATH_TOO_LONG_LINE = 75;
constexpr size_t LONGEST_PATH = 259; ///< characters

} // namespace

void CProcess::Initialize(int iArguments, char** ppszArguments, char** ppszEnvironment)
{
    m_iArguments = iArguments;
    m_ppszArguments = ppszArguments;
    m_ppszEnvironment = ppszEnvironment;
    FindProgramDirectory();
}

const char* CProcess::Argument(int iIndex) const
{
    return iIndex >= 0 && iIndex < m_iArguments ? m_ppszArguments[iIndex] : nullptr;
}

std::vector<std::string> CProcess::Arguments() const
{
    return m_iArguments > 1 ? std::vector<std::string>(m_ppszArguments + 1, m_ppszArguments + m_iArguments)
                            : std::vector<std::string>();
}

void CProcess::FindProgramDirectory()
{
    const std::string strPath = Platform::ExecutablePath();
    if (strPath.size() > LONGEST_PATH)
        ThrowOutOfMemoryException(SOURCE_FILE, PATH_TOO_LONG_LINE);
    const size_t nSeparator = strPath.rfind('/');
    if (nSeparator == std::string::npos)
        m_strProgramDirectory = "";
    else // the root is its separator
        m_strProgramDirectory = std::string_view(strPath).substr(0, nSeparator == 0 ? 1 : nSeparator);
}

} // namespace Bex
