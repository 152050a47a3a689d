#pragma once

#include <cstddef>

namespace Bex {

/// The root of the library's exceptions: which class was thrown, and where. A value; the strings it points to are
/// constants. The SMTP client's exceptions derive from it, too.
class CException
{
public:
    CException(const char* pszClassName, const char* pszSourceFile, int iLine)
        : m_pszClassName(pszClassName), m_pszSourceFile(pszSourceFile), m_iLine(iLine)
    {}
    virtual ~CException() = default;
    CException(const CException&) = default;
    CException& operator=(const CException&) = default;

    /// Clears the buffer and writes the text into it, cut so that it stays terminated. A size of 0 does nothing.
    virtual void GetMessage(char* pBuffer, size_t nSize) const;
    virtual void Print() const; ///< the text and a line end to standard output

    const char* ClassName() const { return m_pszClassName; }
    const char* SourceFile() const { return m_pszSourceFile; }
    int Line() const { return m_iLine; }

protected:
    /// What every GetMessage writes with: the buffer cleared, the text cut.
    static void Render(char* pBuffer, size_t nSize, const char* pszFormat, ...) __attribute__((format(printf, 3, 4)));

private:
    const char* m_pszClassName;
    const char* m_pszSourceFile;
    int m_iLine;
};

} // namespace Bex
