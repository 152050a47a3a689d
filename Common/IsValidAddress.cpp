#include "Common/IsValidAddress.h"

namespace {

constexpr std::string_view ATOM_SPECIALS = "!#$%&'*+-/=?^_{|}~`";

bool IsAtomText(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           ATOM_SPECIALS.find(c) != std::string_view::npos;
}

bool IsDomainText(char c) { return IsAtomText(c) || c == '[' || c == ']'; }

} // namespace

bool IsValidAddress(std::string_view address)
{
    enum { WORD_START, IN_WORD, LABEL_START, IN_LABEL } state = WORD_START;
    for (char c : address) {
        if ((state == WORD_START || state == IN_WORD) && IsAtomText(c))
            state = IN_WORD;
        else if ((state == LABEL_START || state == IN_LABEL) && IsDomainText(c))
            state = IN_LABEL;
        else if (state == IN_WORD && c == '.')
            state = WORD_START;
        else if ((state == IN_LABEL && c == '.') || (state == IN_WORD && c == '@'))
            state = LABEL_START;
        else
            return false;
    }
    return state == IN_WORD || state == IN_LABEL;
}
