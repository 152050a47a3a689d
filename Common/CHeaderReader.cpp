#include "Common/CHeaderReader.h"

#include "Bex/TextFunctions.h"

CHeaderReader::CHeaderReader(Bex::CFile& file, uint64_t nMaxBytes, uint32_t nMaxLines)
    : m_file(file), m_nMaxBytes(nMaxBytes), m_nMaxLines(nMaxLines),
      m_pBuffer(std::make_unique_for_overwrite<char[]>(BUFFER_SIZE))
{}

CHeaderReader::EResult CHeaderReader::Next(std::string& strField)
{
    if (m_bEnd || !ReadLine())
        return EResult::End;
    if (m_nOffset > m_nMaxBytes)
        return EResult::TooBig;
    const std::string_view line = TrimmedLine();
    const auto nBefore = static_cast<size_t>(line.data() - m_strLine.data());
    m_strLine.resize(nBefore + line.size());
    strField.swap(m_strLine); // no copy of a long one is made
    strField.erase(0, nBefore);
    if (strField.empty())
        return EResult::End;
    if (IsTooBig())
        return EResult::TooBig;
    while (AtContinuation()) {
        ReadLine();
        strField += "\r\n\t";
        strField += TrimmedLine();
        if (IsTooBig())
            return EResult::TooBig;
    }
    if (m_strLine.capacity() > BUFFER_SIZE) // a long one would be in memory twice
        std::string().swap(m_strLine);
    return EResult::Field;
}

bool CHeaderReader::Fill()
{
    if (m_nNext < m_nFilled)
        return true;
    m_nNext = 0;
    m_nFilled = 0; // stays so when the read fails
    m_nFilled = m_file.Read(m_pBuffer.get(), BUFFER_SIZE);
    return m_nFilled > 0;
}

bool CHeaderReader::ReadLine()
{
    m_strLine.clear();
    ++m_nLines;
    while (m_strLine.size() <= m_nMaxBytes && Fill()) {
        std::string_view buffered = Buffered();
        size_t nFeed = buffered.find('\n');
        size_t nTaken = nFeed == std::string_view::npos ? buffered.size() : nFeed + 1;
        m_strLine += buffered.substr(0, nTaken);
        m_nNext += static_cast<uint32_t>(nTaken);
        m_nOffset += nTaken;
        if (nFeed != std::string_view::npos)
            break;
    }
    return !m_strLine.empty();
}

// A header line is a C string: a NUL ends its text.
std::string_view CHeaderReader::TrimmedLine() const
{
    return Bex::TrimmedView(std::string_view(m_strLine).substr(0, m_strLine.find('\0')));
}

bool CHeaderReader::AtContinuation()
{
    if (!Fill()) {
        m_bEnd = true;
        return false;
    }
    return m_pBuffer[m_nNext] == '\t' || m_pBuffer[m_nNext] == ' ';
}
