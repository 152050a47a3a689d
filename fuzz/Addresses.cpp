// Takes any text as the value of each address field.

#include "Check.h"
#include "Common/CMail.h"
#include "Common/NormalizeAddress.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pBytes, size_t nSize)
{
    const std::string_view text(reinterpret_cast<const char*>(pBytes), nSize);
    const Bex::CSimpleString strAddress = NormalizeAddress(text);
    Check(strAddress.View().find_first_of("\"'<>") == std::string_view::npos);
    Check(strAddress.Length() <= nSize);
    const size_t nAt = strAddress.View().find('@');
    if (nAt != std::string_view::npos) {
        for (const char c : strAddress.View().substr(nAt))
            Check(c < 'A' || c > 'Z');
    }
    for (const char* pszName : {"From", "X-Envelope-From", "X-Sender", "Return-Path", "X-Envelope-To", "Delivered-To",
                                "X-Original-To", "Message-ID", "Return-Receipt-To", "To"}) {
        CMail mail;
        mail.ParseHeaderLine(std::string(pszName) + ": " + std::string(text));
        for (const Bex::CSimpleString& strRecipient : mail.Recipients())
            Check(!strRecipient.IsEmpty() && strRecipient.View().find_first_of(",;<>") == std::string_view::npos);
        const CMail copy(mail, mail.FirstRecipient());
        Check(copy.GetHeaderText(EWriteMode::Envelope) == mail.GetHeaderText(EWriteMode::Envelope));
    }
    return 0;
}
