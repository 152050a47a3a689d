#include "Control/AskYesNo.h"

#include "Control/CControlError.h"
#include "Platform/ConsoleScreen.h"

#include <iostream>

void AskYesNo(const CTerminal& terminal, const std::string& strQuestion, const char* pszHint)
{
    if (!Platform::HasKeyboard())
        throw CControlError(EExit::Refused, std::string("nobody is there to be asked: ") + pszHint);
    terminal.Write(strQuestion);
    terminal.Write(" [y/N] ");
    CTerminal::Finish();
    std::string strAnswer;
    std::getline(std::cin, strAnswer);
    if (strAnswer != "y" && strAnswer != "yes")
        throw CControlError(EExit::Refused, "nothing was done");
}
