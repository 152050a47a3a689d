#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Puts one SMTP reply (RFC 5321 4.2) together from whatever pieces it arrives in.
///
/// A line ends at CR or LF; empty lines do not count, and NULs are dropped. The reply is complete when a piece ends
/// with a line whose fourth character is no "-", and the reply begins with a number other than 0. Used by one thread.
class CReplyReader
{
public:
    static constexpr size_t MOST_BYTES = size_t{128} * 1024;
    static constexpr size_t MOST_LINES = 512;
    static constexpr size_t LONGEST_SHOWN_LINE = 512; ///< in logs and on the console; only a report tells the whole

    static constexpr size_t CODE_LENGTH = 3;
    static constexpr size_t TEXT_START = CODE_LENGTH + 1; ///< in a line: behind the code and the character after it

    enum class EState { Incomplete, Complete, TooLong };

    void Clear();
    EState Take(std::string_view piece);
    EState TakeOne(std::string_view& piece); ///< leaves what follows the reply's last line in the piece, if not blank

    const std::string& Text() const { return m_strText; } ///< the lines so far, each ended by LF
    std::string_view LastLine() const;                    ///< with its LF; one that has not ended yet without
    int Code() const;                                     ///< 0 when the text does not begin with digits
    bool EndsInReturn() const { return m_cLast == '\r'; } ///< a LF may still be on its way

private:
    EState EndLine();
    bool IsLastLine() const;

    std::string m_strText;
    std::string m_strLine;  ///< the one that has not ended yet
    size_t m_nLastLine = 0; ///< where the last ended line begins in the text
    size_t m_nLines = 0;
    size_t m_nBytes = 0;
    char m_cLast = '\0';
};
