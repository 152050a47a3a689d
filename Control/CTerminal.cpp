#include "Control/CTerminal.h"

#include "Control/SafeText.h"
#include "Platform/ConsoleScreen.h"
#include "Platform/Process.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr std::string_view COLUMN_GAP = "  ";
constexpr size_t FIELD_WIDTH = 18;
constexpr size_t LONGEST_COMPLAINT = 2000; ///< bytes: it may quote an argument
constexpr int JSON_INDENT = 2;
constexpr char NO_COLOUR_VARIABLE[] = "NO_COLOR";
constexpr std::string_view STYLE_END = "\x1b[0m";

const char* StyleBegin(EStyle style)
{
    switch (style) {
    case EStyle::Strong:
        return "\x1b[1m";
    case EStyle::Faint:
        return "\x1b[2m";
    case EStyle::Good:
        return "\x1b[32m";
    case EStyle::Warning:
        return "\x1b[33m";
    case EStyle::Bad:
        return "\x1b[31m";
    case EStyle::Plain:
        break;
    }
    return "";
}

bool WantsColours(const SOptions& options)
{
    bool bPresent = false;
    const bool bForbidden = options.bNoColour || !Platform::EnvironmentVariable(NO_COLOUR_VARIABLE, bPresent).empty();
    return !bForbidden && Platform::HasConsole(false);
}

/// In characters, of a text that is well-formed.
size_t WidthOf(std::string_view text)
{
    return static_cast<size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0u) != 0x80u; }));
}

} // namespace

CTerminal::CTerminal(const SOptions& options) : m_bJson(options.bJson), m_bColours(WantsColours(options)) {}

void CTerminal::Raw(std::string_view text) const { std::fwrite(text.data(), 1, text.size(), stdout); }

void CTerminal::Write(std::string_view text, EStyle style) const
{
    const bool bStyled = m_bColours && style != EStyle::Plain;
    if (bStyled)
        Raw(StyleBegin(style));
    Raw(SafeText(text));
    if (bStyled)
        Raw(STYLE_END);
}

void CTerminal::Line(std::string_view text, EStyle style) const
{
    Write(text, style);
    Raw("\n");
}

void CTerminal::Field(std::string_view name, std::string_view value, EStyle style) const
{
    std::string strName(name);
    strName += ':';
    strName.resize(std::max(FIELD_WIDTH, strName.size() + 1), ' ');
    Write(strName, EStyle::Faint);
    Line(value, style);
}

void CTerminal::Table(const STable& table) const
{
    std::vector<size_t> widths;
    for (const STable::SColumn& column : table.columns)
        widths.push_back(WidthOf(column.pszHeading));
    for (const std::vector<SCell>& row : table.rows) {
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], WidthOf(SafeText(row[i].strText)));
    }
    const auto WriteRow = [&](const auto& CellAt) {
        for (size_t i = 0; i < widths.size(); ++i) {
            const SCell cell = CellAt(i);
            const std::string strPadding(widths[i] - WidthOf(SafeText(cell.strText)), ' ');
            if (table.columns[i].bRight)
                Raw(strPadding);
            Write(cell.strText, cell.look);
            if (i + 1 == widths.size())
                break;
            if (!table.columns[i].bRight)
                Raw(strPadding);
            Raw(COLUMN_GAP);
        }
        Raw("\n");
    };
    WriteRow([&](size_t i) { return SCell(table.columns[i].pszHeading, EStyle::Strong); });
    for (const std::vector<SCell>& row : table.rows)
        WriteRow([&](size_t i) { return row[i]; });
}

void CTerminal::Json(const nlohmann::ordered_json& value) const
{
    using EHandler = nlohmann::ordered_json::error_handler_t;
    Raw(value.dump(JSON_INDENT, ' ', true, EHandler::replace)); // ASCII only: no terminal takes it amiss
    Raw("\n");
}

void CTerminal::Complain(std::string_view text)
{
    std::fflush(stdout);
    const bool bCut = text.size() > LONGEST_COMPLAINT;
    const std::string strLine = "tobixctl: " + SafeText(text.substr(0, LONGEST_COMPLAINT)) + (bCut ? "...\n" : "\n");
    std::fwrite(strLine.data(), 1, strLine.size(), stderr);
}

bool CTerminal::Finish() { return std::fflush(stdout) == 0 && std::ferror(stdout) == 0; }
