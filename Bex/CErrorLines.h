#pragma once

#include <string>
#include <string_view>

namespace Bex {

/// Keeps the error lines that the calling thread logs while the object lives, for whoever has to say in one line why
/// something failed. The first ones count; of several objects the innermost keeps them.
class CErrorLines
{
public:
    static constexpr size_t LONGEST = 500; ///< bytes of all together

    CErrorLines();
    ~CErrorLines();
    CErrorLines(const CErrorLines&) = delete;
    CErrorLines& operator=(const CErrorLines&) = delete;

    const std::string& Text() const { return m_strText; } ///< separated by "; "

    static void Note(std::string_view line); ///< for the calling thread's, if there is one; never raises

private:
    CErrorLines* const m_pOuter;
    std::string m_strText;
};

} // namespace Bex
