#include "SMTPc/CSMTPException.h"

CSMTPException::CSMTPException(const char* pszClassName, const char* pszSourceFile, int iLine,
                               const Bex::CList<Bex::CSimpleString>& transcript)
    : CException(pszClassName, pszSourceFile, iLine)
{
    m_lines.AppendAll(transcript);
}

CSMTPException::CSMTPException(const char* pszClassName, const char* pszSourceFile, int iLine,
                               const Bex::CSimpleString& strLine)
    : CException(pszClassName, pszSourceFile, iLine)
{
    m_lines.Append(strLine);
}

Bex::CSimpleString CSMTPException::LastLine() const
{
    return m_lines.IsEmpty() ? Bex::CSimpleString() : m_lines.At(m_lines.Count() - 1);
}
