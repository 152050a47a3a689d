#include "Responder/SCommand.h"

#include <utility>

namespace {

/// Takes the arguments one after the other.
class CArguments
{
public:
    explicit CArguments(const std::vector<std::string_view>& arguments) : m_arguments(arguments) {}

    bool AtEnd() const { return m_nNext == m_arguments.size(); }
    bool AtValue() const { return !AtEnd() && !m_arguments[m_nNext].starts_with('-'); }
    std::string_view Next() { return m_arguments[m_nNext++]; }
    std::string_view Value() { return AtValue() ? Next() : std::string_view(); }
    std::string Values() ///< up to the next option, parted by blanks
    {
        std::string strValues;
        while (AtValue())
            strValues.append(strValues.empty() ? "" : " ").append(Next());
        return strValues;
    }

private:
    const std::vector<std::string_view>& m_arguments;
    size_t m_nNext = 0;
};

bool ParseReturn(std::string_view value, SCommand::EReturn& returned)
{
    returned = value == "full" ? SCommand::EReturn::Full : SCommand::EReturn::Header;
    return value == "full" || value == "header";
}

bool ParseOption(std::string_view option, CArguments& arguments, SCommand& command)
{
    static constexpr std::pair<std::string_view, bool SCommand::*> FLAGS[] = {
        {"-ib", &SCommand::bIgnoreBulk}, {"-s", &SCommand::bSilent}, {"-k", &SCommand::bKeep}};
    for (const auto& [name, pFlag] : FLAGS) {
        if (option == name)
            return command.*pFlag = true;
    }
    if (option == "-b")
        return ParseReturn(arguments.Value(), command.returned);
    if (option == "-to")
        return !(command.strTo = arguments.Values()).empty();
    if (option == "-t")
        command.strText = arguments.Value();
    return option == "-t";
}

} // namespace

std::optional<SCommand> SCommand::Parse(const std::vector<std::string_view>& list)
{
    CArguments arguments(list);
    SCommand command;
    bool bOutput = false;
    command.strMail = arguments.Value();
    while (!arguments.AtEnd()) {
        const std::string_view option = arguments.Next();
        if (option == "-o") {
            bOutput = true;
            command.strOutput = arguments.Value();
        } else if (!ParseOption(option, arguments, command)) {
            return std::nullopt;
        }
    }
    if (!bOutput || command.strMail.IsEmpty() || command.strText.IsEmpty())
        return std::nullopt;
    return command;
}
