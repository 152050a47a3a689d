#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string_view>

namespace Bex {

/// The string type of the system: a NUL-terminated byte string with its own copy of the characters.
///
/// Strings never share characters; a string that is handed to another thread is copied. One object is used by one
/// thread at a time. Operations that build a new value from the text (Append, Format) measure it as a C string, so
/// what stands after an embedded NUL does not survive them. A length has 32 bits; a longer text, like a refused
/// allocation, raises COutOfMemoryException.
template <class TChar>
class CSimpleStringT
{
public:
    using TView = std::basic_string_view<TChar>;
    static constexpr uint32_t ALL = 0xFFFFFFFFu; ///< "the rest" as a count

    CSimpleStringT() noexcept;
    CSimpleStringT(const TChar* pszText); ///< null gives the empty string
    CSimpleStringT(TView text);           ///< all of it, NULs included
    CSimpleStringT(const CSimpleStringT& other);
    CSimpleStringT(CSimpleStringT&& other) noexcept;
    ~CSimpleStringT();
    CSimpleStringT& operator=(const CSimpleStringT& other);
    CSimpleStringT& operator=(CSimpleStringT&& other) noexcept;
    CSimpleStringT& operator=(const TChar* pszText);
    CSimpleStringT& operator=(TView text);

    uint32_t Length() const noexcept { return Header()->dwLength.load(std::memory_order_relaxed); }
    bool IsEmpty() const noexcept { return Length() == 0; }
    const TChar* Text() const noexcept { return m_pText; } ///< NUL-terminated; valid until the string changes
    TView View() const noexcept { return {m_pText, Length()}; }
    operator TView() const noexcept { return View(); }
    TChar At(uint32_t nIndex) const; ///< CIndexOutOfBoundsException at or beyond the length
    void Set(uint32_t nIndex, TChar c);

    bool EqualsNoCase(TView other) const noexcept; ///< folds ASCII letters only

    void Format(const char* pszFormat, ...) __attribute__((format(printf, 2, 3))); ///< no upper limit
    void FormatV(const char* pszFormat, va_list arguments);
    static CSimpleStringT Formatted(const char* pszFormat, ...) __attribute__((format(printf, 1, 2)));

    CSimpleStringT& Append(TView text);
    CSimpleStringT& Append(TChar c);
    CSimpleStringT& operator+=(TView text) { return Append(text); }
    CSimpleStringT& operator+=(TChar c) { return Append(c); }
    void Reserve(uint32_t nCapacity); ///< keeps the text

    /// CIndexOutOfBoundsException when the start lies beyond the length; a count beyond the end takes the rest.
    CSimpleStringT SubString(uint32_t nStart, uint32_t nCount = ALL) const;
    void Trim(); ///< white space is space, tab, LF, VT, FF and CR
    void TrimLeft();
    void TrimRight();
    void ToLower(); ///< ASCII letters only
    CSimpleStringT Lowered() const;
    void ReplaceAll(TView text, TView by);     ///< goes on after the inserted text; an empty text changes nothing
    CSimpleStringT BeforeFirst(TChar c) const; ///< the whole string when absent
    CSimpleStringT AfterFirst(TChar c) const;  ///< empty when absent
    CSimpleStringT LocalPart() const;          ///< before the last "@"; the whole string without one
    CSimpleStringT Domain() const;             ///< after the last "@"; empty without one
    bool Contains(TChar c) const noexcept { return View().find(c) != TView::npos; }

    friend bool operator==(const CSimpleStringT& a, const CSimpleStringT& b) noexcept { return a.View() == b.View(); }
    friend bool operator==(const CSimpleStringT& a, const TChar* b) noexcept { return a.View() == TView(b); }
    friend bool operator==(const CSimpleStringT& a, TView b) noexcept { return a.View() == b; }

private:
    /// Stands in front of the characters in the same allocation.
    struct SHeader
    {
        std::atomic<uint32_t> dwLength;
        std::atomic<uint32_t> dwCapacity; ///< characters without the terminating NUL
    };
    struct SEmpty;

    static TChar* EmptyText() noexcept; ///< the one shared empty value, never freed
    static TChar* Allocate(uint32_t nCapacity);
    static TChar* Copy(TView text);
    void Free() noexcept;
    SHeader* Header() const noexcept { return reinterpret_cast<SHeader*>(m_pText) - 1; }
    void SetLength(uint32_t nLength) noexcept;
    void Adopt(TView part); ///< shortens to a part of the own text

    TChar* m_pText;
};

using CSimpleString = CSimpleStringT<char>;

} // namespace Bex
