#include "Inject/AddressList.h"

#include "Bex/TextFunctions.h"

namespace {

/// One address after the other, from the front.
class CReader
{
public:
    explicit CReader(std::string_view text) : m_text(text) {}

    std::vector<std::string> Read()
    {
        for (; m_nNext < m_text.size(); ++m_nNext)
            Take(m_text[m_nNext]);
        End();
        return std::move(m_addresses);
    }

private:
    void Take(char c)
    {
        switch (c) {
        case '(':
            SkipComment();
            break;
        case '"':
            TakeQuoted();
            break;
        case '<':
            m_bAngle = m_bInAngle = true;
            m_strAddress.clear();
            break;
        case '>':
            m_bInAngle = false;
            break;
        case ':': // behind a group's name or a route; in an address it is no less wrong for having a valid rest
            if (m_strAddress.find('@', 1) == std::string::npos || m_strAddress.front() == '@')
                m_strAddress.clear();
            else
                Append(c);
            break;
        case ',':
        case ';':
            if (!m_bInAngle)
                End();
            break;
        default:
            Append(c);
        }
    }

    void Append(char c)
    {
        if (m_bInAngle || !m_bAngle) // nothing that follows an address in brackets belongs to it
            m_strAddress += c;
    }

    void End()
    {
        const std::string_view address = Bex::TrimmedView(m_strAddress);
        if (!address.empty() || m_bAngle)
            m_addresses.emplace_back(address);
        m_strAddress.clear();
        m_bAngle = m_bInAngle = false;
    }

    void SkipComment()
    {
        for (unsigned nDepth = 0; m_nNext < m_text.size(); ++m_nNext) {
            const char c = m_text[m_nNext];
            if (c == '\\')
                ++m_nNext;
            else if (c == '(')
                ++nDepth;
            else if (c == ')' && --nDepth == 0)
                return;
        }
    }

    void TakeQuoted()
    {
        for (++m_nNext; m_nNext < m_text.size() && m_text[m_nNext] != '"'; ++m_nNext) {
            if (m_text[m_nNext] == '\\' && ++m_nNext == m_text.size())
                return;
            Append(m_text[m_nNext]);
        }
    }

    std::string_view m_text;
    size_t m_nNext = 0;
    std::vector<std::string> m_addresses;
    std::string m_strAddress;
    bool m_bAngle = false; ///< the address stands in brackets
    bool m_bInAngle = false;
};

} // namespace

std::vector<std::string> AddressList(std::string_view text) { return CReader(text).Read(); }
