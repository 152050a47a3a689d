#pragma once

#include <span>
#include <stdexcept>
#include <string_view>

namespace Bex {

enum class EKeyKind {
    Text,
    Number, ///< as atoi reads it
    Flag,   ///< a number: 0 is off, anything else on
    Path,   ///< may be written in the Windows form
};

/// What applies when the file lacks a key: a value as it would stand in the file, or the value of another key.
struct SKeyDefault
{
    const char* pszText;
    bool bOtherKey = false;

    constexpr SKeyDefault(const char* pszValue) : pszText(pszValue) {}
};

constexpr SKeyDefault SameAs(const char* pszKey)
{
    SKeyDefault other(pszKey);
    other.bOtherKey = true;
    return other;
}

/// One line of the table of a settings file's keys.
struct SConfigKey
{
    const char* pszName;
    EKeyKind kind;
    SKeyDefault whenMissing;
    const char* pszMeaning; ///< one line, as the manual prints it
};

/// A key to read values by; made from its line in the table while compiling, so that a key that the table lacks, or
/// that is read as another kind, does not compile. A value.
class CConfigKey
{
public:
    constexpr const char* Name() const { return m_pszName; }
    constexpr const char* OtherName() const { return m_pszOtherName; } ///< the key that stands in; null: none
    constexpr const char* Default() const { return m_pszDefault; }     ///< when the file has neither

protected:
    consteval CConfigKey(std::span<const SConfigKey> table, std::string_view name, EKeyKind kind)
    {
        const SConfigKey& key = LineOf(table, name, kind);
        m_pszName = key.pszName;
        m_pszDefault = key.whenMissing.pszText;
        if (key.whenMissing.bOtherKey) {
            const SConfigKey& other = LineOf(table, key.whenMissing.pszText, kind);
            if (other.whenMissing.bOtherKey)
                throw std::logic_error("a key that stands in has a default of its own");
            m_pszOtherName = other.pszName;
            m_pszDefault = other.whenMissing.pszText;
        }
    }

private:
    static consteval const SConfigKey& LineOf(std::span<const SConfigKey> table, std::string_view name, EKeyKind kind)
    {
        for (const SConfigKey& key : table) {
            if (key.pszName == name && key.kind == kind)
                return key;
        }
        throw std::logic_error("the table has no such key of this kind");
    }

    const char* m_pszName = nullptr;
    const char* m_pszOtherName = nullptr;
    const char* m_pszDefault = nullptr;
};

template <EKeyKind KIND>
class TConfigKey : public CConfigKey
{
public:
    consteval TConfigKey(std::span<const SConfigKey> table, std::string_view name) : CConfigKey(table, name, KIND) {}
};

using CTextKey = TConfigKey<EKeyKind::Text>;
using CNumberKey = TConfigKey<EKeyKind::Number>;
using CFlagKey = TConfigKey<EKeyKind::Flag>;
using CPathKey = TConfigKey<EKeyKind::Path>;

} // namespace Bex
