#pragma once

#include <memory>
#include <string_view>

/// The mail on standard input, line by line. Used by one thread; CRefusal when it cannot be read.
class CInput
{
public:
    /// A line with nothing but a dot can end it (RFC 5321 4.1.1.4, as programs hand mail over).
    explicit CInput(bool bDotEnds);

    /// The next line with its end, or a part of one that is longer than the buffer. Valid until the next call. False at
    /// the end of the mail.
    bool Next(std::string_view& piece);

private:
    static constexpr size_t BUFFER_SIZE = 65536;

    std::string_view Buffered() const { return {m_pBuffer.get() + m_nNext, m_nEnd - m_nNext}; }
    bool Fill();

    std::unique_ptr<char[]> m_pBuffer;
    size_t m_nNext = 0;
    size_t m_nEnd = 0;
    bool m_bDotEnds;
    bool m_bAtLineStart = true;
    bool m_bEnd = false; ///< of standard input
};
