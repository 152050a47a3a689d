#pragma once

#include "Control/SOptions.h"

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

enum class EStyle { Plain, Strong, Faint, Good, Warning, Bad };

/// One field of a table.
struct SCell
{
    SCell(std::string strValue, EStyle style = EStyle::Plain) : strText(std::move(strValue)), look(style) {}
    SCell(const char* pszValue) : strText(pszValue) {}

    std::string strText;
    EStyle look = EStyle::Plain;
};

/// A table with a line of headings; numbers belong to the right.
struct STable
{
    struct SColumn
    {
        const char* pszHeading;
        bool bRight = false;
    };
    std::vector<SColumn> columns;
    std::vector<std::vector<SCell>> rows; ///< as many cells each as there are columns
};

/// Where a command writes its answer: coloured when a person watches, plain text when it is piped, JSON when asked
/// for. Everything passes SafeText. One thread; whether all of it was written, Finish tells.
class CTerminal
{
public:
    explicit CTerminal(const SOptions& options);

    bool IsJson() const { return m_bJson; }
    void Write(std::string_view text, EStyle style = EStyle::Plain) const; ///< without a line end
    void Line(std::string_view text = {}, EStyle style = EStyle::Plain) const;
    void Field(std::string_view name, std::string_view value, EStyle style = EStyle::Plain) const; ///< "name:  value"
    void Table(const STable& table) const;
    void Json(const nlohmann::ordered_json& value) const; ///< bytes that are no UTF-8 become U+FFFD
    void Raw(std::string_view text) const;                ///< as it is: for texts made of safe parts
    static void Complain(std::string_view text);          ///< "tobixctl: <text>" to standard error
    static bool Finish();                                 ///< false: standard output took not all of it

private:
    bool m_bJson;
    bool m_bColours;
};
