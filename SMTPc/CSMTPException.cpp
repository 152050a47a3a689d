#include "SMTPc/CSMTPException.h"

#include "Bex/TextFunctions.h"
#include "Common/ReportText.h"
#include "SMTPc/CReplyReader.h"

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
    if (m_lines.IsEmpty())
        return {};
    const Bex::CSimpleString strLast = m_lines.At(m_lines.Count() - 1); // a whole reply maybe
    std::string_view line = Bex::TrimmedView(strLast);
    line.remove_prefix(line.rfind('\n') + 1); // npos is -1
    if (line.starts_with(ReportText::REPLY))
        line = line.substr(0, std::string_view(ReportText::REPLY).size() + CReplyReader::LONGEST_SHOWN_LINE);
    return line;
}
