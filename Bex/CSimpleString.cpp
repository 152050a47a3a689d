#include "Bex/CSimpleString.h"

#include "Bex/CIndexOutOfBoundsException.h"
#include "Bex/COutOfMemoryException.h"
#include "Bex/TextFunctions.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace Bex {

namespace {
constexpr char SOURCE_FILE[] = "Bex/CSimpleString";
}

template <class TChar>
struct CSimpleStringT<TChar>::SEmpty
{
    SHeader header{};
    TChar cTerminator = 0;
};

template <class TChar>
TChar* CSimpleStringT<TChar>::EmptyText() noexcept
{
    static constinit SEmpty s_empty;
    return &s_empty.cTerminator;
}

template <class TChar>
TChar* CSimpleStringT<TChar>::Allocate(uint32_t nCapacity)
{
    void* pBlock = std::malloc(sizeof(SHeader) + (size_t{nCapacity} + 1) * sizeof(TChar));
    if (pBlock == nullptr)
        ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
    SHeader* pHeader = new (pBlock) SHeader;
    pHeader->dwLength.exchange(0, std::memory_order_relaxed);
    pHeader->dwCapacity.exchange(nCapacity, std::memory_order_relaxed);
    TChar* pText = reinterpret_cast<TChar*>(pHeader + 1);
    pText[0] = 0;
    return pText;
}

template <class TChar>
TChar* CSimpleStringT<TChar>::Copy(TView text)
{
    if (text.empty())
        return EmptyText();
    if (text.size() >= ALL)
        ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
    TChar* pText = Allocate(static_cast<uint32_t>(text.size()));
    std::memcpy(pText, text.data(), text.size() * sizeof(TChar));
    pText[text.size()] = 0;
    (reinterpret_cast<SHeader*>(pText) - 1)
        ->dwLength.exchange(static_cast<uint32_t>(text.size()), std::memory_order_relaxed);
    return pText;
}

template <class TChar>
void CSimpleStringT<TChar>::Free() noexcept
{
    if (m_pText != EmptyText())
        std::free(Header());
}

template <class TChar>
void CSimpleStringT<TChar>::SetLength(uint32_t nLength) noexcept
{
    if (m_pText == EmptyText())
        return;
    m_pText[nLength] = 0;
    Header()->dwLength.exchange(nLength, std::memory_order_relaxed);
}

template <class TChar>
void CSimpleStringT<TChar>::Adopt(TView part)
{
    if (part.data() != m_pText)
        std::memmove(m_pText, part.data(), part.size() * sizeof(TChar));
    SetLength(static_cast<uint32_t>(part.size()));
}

template <class TChar>
CSimpleStringT<TChar>::CSimpleStringT() noexcept : m_pText(EmptyText())
{}

template <class TChar>
CSimpleStringT<TChar>::CSimpleStringT(const TChar* pszText)
    : m_pText(Copy(pszText != nullptr ? TView(pszText) : TView()))
{}

template <class TChar>
CSimpleStringT<TChar>::CSimpleStringT(TView text) : m_pText(Copy(text))
{}

template <class TChar>
CSimpleStringT<TChar>::CSimpleStringT(const CSimpleStringT& other) : m_pText(Copy(other.View()))
{}

template <class TChar>
CSimpleStringT<TChar>::CSimpleStringT(CSimpleStringT&& other) noexcept : m_pText(other.m_pText)
{
    other.m_pText = EmptyText();
}

template <class TChar>
CSimpleStringT<TChar>::~CSimpleStringT()
{
    Free();
}

template <class TChar>
CSimpleStringT<TChar>& CSimpleStringT<TChar>::operator=(const CSimpleStringT& other)
{
    return this == &other ? *this : *this = other.View();
}

template <class TChar>
CSimpleStringT<TChar>& CSimpleStringT<TChar>::operator=(CSimpleStringT&& other) noexcept
{
    if (this != &other) {
        Free();
        m_pText = other.m_pText;
        other.m_pText = EmptyText();
    }
    return *this;
}

template <class TChar>
CSimpleStringT<TChar>& CSimpleStringT<TChar>::operator=(const TChar* pszText)
{
    return *this = pszText != nullptr ? TView(pszText) : TView();
}

template <class TChar>
CSimpleStringT<TChar>& CSimpleStringT<TChar>::operator=(TView text)
{
    TChar* pText = Copy(text); // the text may be a part of this string
    Free();
    m_pText = pText;
    return *this;
}

template <class TChar>
TChar CSimpleStringT<TChar>::At(uint32_t nIndex) const
{
    if (nIndex >= Length())
        ThrowIndexOutOfBoundsException(SOURCE_FILE, __LINE__);
    return m_pText[nIndex];
}

template <class TChar>
void CSimpleStringT<TChar>::Set(uint32_t nIndex, TChar c)
{
    if (nIndex >= Length())
        ThrowIndexOutOfBoundsException(SOURCE_FILE, __LINE__);
    m_pText[nIndex] = c;
}

template <class TChar>
bool CSimpleStringT<TChar>::EqualsNoCase(TView other) const noexcept
{
    return EqualNoCase(View(), other);
}

template <class TChar>
void CSimpleStringT<TChar>::FormatV(const char* pszFormat, va_list arguments)
{
    va_list measured;
    va_copy(measured, arguments);
    int nLength = std::vsnprintf(nullptr, 0, pszFormat, measured);
    va_end(measured);
    if (nLength < 0)
        ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
    CSimpleStringT strResult;
    if (nLength > 0) {
        strResult.Reserve(static_cast<uint32_t>(nLength));
        std::vsnprintf(strResult.m_pText, static_cast<size_t>(nLength) + 1, pszFormat, arguments);
        strResult.SetLength(static_cast<uint32_t>(std::strlen(strResult.m_pText)));
    }
    *this = std::move(strResult);
}

template <class TChar>
void CSimpleStringT<TChar>::Format(const char* pszFormat, ...)
{
    va_list arguments;
    va_start(arguments, pszFormat);
    FormatV(pszFormat, arguments);
    va_end(arguments);
}

template <class TChar>
CSimpleStringT<TChar> CSimpleStringT<TChar>::Formatted(const char* pszFormat, ...)
{
    CSimpleStringT strResult;
    va_list arguments;
    va_start(arguments, pszFormat);
    strResult.FormatV(pszFormat, arguments);
    va_end(arguments);
    return strResult;
}

template <class TChar>
void CSimpleStringT<TChar>::Reserve(uint32_t nCapacity)
{
    if (nCapacity <= Header()->dwCapacity.load(std::memory_order_relaxed))
        return;
    TChar* pText = Allocate(nCapacity);
    uint32_t nLength = Length();
    std::memcpy(pText, m_pText, nLength * sizeof(TChar));
    Free();
    m_pText = pText;
    SetLength(nLength);
}

template <class TChar>
CSimpleStringT<TChar>& CSimpleStringT<TChar>::Append(TView text)
{
    text = text.substr(0, std::min(text.find(TChar{}), text.size()));
    size_t nOld = std::strlen(m_pText);
    size_t nNew = nOld + text.size();
    if (nNew >= ALL)
        ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
    uint32_t nCapacity = Header()->dwCapacity.load(std::memory_order_relaxed);
    if (nNew > nCapacity) {
        size_t nGrown = std::min<size_t>(std::max<size_t>(nNew, nCapacity + size_t{nCapacity} / 2), ALL - 1);
        TChar* pText = Allocate(static_cast<uint32_t>(nGrown));
        std::memcpy(pText, m_pText, nOld * sizeof(TChar));
        std::memcpy(pText + nOld, text.data(), text.size() * sizeof(TChar)); // before Free: it may be our own
        Free();
        m_pText = pText;
    } else if (!text.empty()) {
        std::memmove(m_pText + nOld, text.data(), text.size() * sizeof(TChar));
    }
    SetLength(static_cast<uint32_t>(nNew));
    return *this;
}

template <class TChar>
CSimpleStringT<TChar>& CSimpleStringT<TChar>::Append(TChar c)
{
    return Append(TView(&c, 1));
}

template <class TChar>
CSimpleStringT<TChar> CSimpleStringT<TChar>::SubString(uint32_t nStart, uint32_t nCount) const
{
    if (nStart > Length())
        ThrowIndexOutOfBoundsException(SOURCE_FILE, __LINE__);
    return CSimpleStringT(View().substr(nStart, nCount == ALL ? TView::npos : nCount));
}

template <class TChar>
void CSimpleStringT<TChar>::Trim()
{
    Adopt(TrimmedView(View()));
}

template <class TChar>
void CSimpleStringT<TChar>::TrimLeft()
{
    TView trimmed = TrimmedView(View());
    Adopt(View().substr(trimmed.empty() ? Length() : static_cast<size_t>(trimmed.data() - m_pText)));
}

template <class TChar>
void CSimpleStringT<TChar>::TrimRight()
{
    TView trimmed = TrimmedView(View());
    Adopt(View().substr(0, trimmed.empty() ? 0 : static_cast<size_t>(trimmed.data() + trimmed.size() - m_pText)));
}

template <class TChar>
void CSimpleStringT<TChar>::ToLower()
{
    if (!IsEmpty())
        std::transform(m_pText, m_pText + Length(), m_pText, [](TChar c) { return LowerAscii(c); });
}

template <class TChar>
CSimpleStringT<TChar> CSimpleStringT<TChar>::Lowered() const
{
    CSimpleStringT strResult(*this);
    strResult.ToLower();
    return strResult;
}

template <class TChar>
void CSimpleStringT<TChar>::ReplaceAll(TView text, TView by)
{
    if (text.empty())
        return;
    size_t nCount = 0;
    for (size_t nFound = View().find(text); nFound != TView::npos; nFound = View().find(text, nFound + text.size()))
        ++nCount;
    if (nCount == 0)
        return;
    const size_t nNew = Length() - nCount * text.size() + nCount * by.size();
    if (nNew >= ALL)
        ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
    CSimpleStringT strResult;
    strResult.Reserve(static_cast<uint32_t>(nNew));
    TChar* pTo = strResult.m_pText;
    size_t nFrom = 0;
    for (size_t nFound = View().find(text); nFound != TView::npos; nFound = View().find(text, nFrom)) {
        pTo = std::copy_n(m_pText + nFrom, nFound - nFrom, pTo);
        pTo = std::copy(by.begin(), by.end(), pTo);
        nFrom = nFound + text.size();
    }
    std::copy_n(m_pText + nFrom, Length() - nFrom, pTo);
    strResult.SetLength(static_cast<uint32_t>(nNew));
    *this = std::move(strResult);
}

template <class TChar>
CSimpleStringT<TChar> CSimpleStringT<TChar>::BeforeFirst(TChar c) const
{
    return CSimpleStringT(View().substr(0, View().find(c)));
}

template <class TChar>
CSimpleStringT<TChar> CSimpleStringT<TChar>::AfterFirst(TChar c) const
{
    size_t nFound = View().find(c);
    return nFound == TView::npos ? CSimpleStringT() : CSimpleStringT(View().substr(nFound + 1));
}

template <class TChar>
CSimpleStringT<TChar> CSimpleStringT<TChar>::LocalPart() const
{
    return CSimpleStringT(View().substr(0, View().rfind('@')));
}

template <class TChar>
CSimpleStringT<TChar> CSimpleStringT<TChar>::Domain() const
{
    size_t nFound = View().rfind('@');
    return nFound == TView::npos ? CSimpleStringT() : CSimpleStringT(View().substr(nFound + 1));
}

template class CSimpleStringT<char>;

} // namespace Bex
