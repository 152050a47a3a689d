#include "Bex/CFileOutputStream.h"

namespace Bex {

bool CFileOutputStream::WriteLine(std::string_view line)
{
    if (!m_file.IsText())
        return false;
    m_file.WriteString(line);
    m_file.WriteString("\n");
    return true;
}

} // namespace Bex
