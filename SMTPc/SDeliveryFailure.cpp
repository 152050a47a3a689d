#include "SMTPc/SDeliveryFailure.h"

#include "Bex/CSecurityException.h"
#include "Bex/CSocketException.h"
#include "SMTPc/CSMTPException.h"

#include <exception>

namespace {

using EKind = SDeliveryFailure::EKind;

template <class TException>
SDeliveryFailure Broken(EKind kind, const TException& exception)
{
    return {.kind = kind,
            .strText = exception.Text(),
            .verdict = EVerdict::ConnectionFailed,
            .bTryNextTarget = true,
            .pszSourceFile = exception.SourceFile(),
            .iLine = exception.Line()};
}

SDeliveryFailure Refused(EKind kind, const Bex::CSimpleString& strText, const Bex::CList<Bex::CSimpleString>& lines)
{
    const bool bForNow = kind == EKind::Temporary;
    return {.kind = kind,
            .strText = strText,
            .lines = lines,
            .verdict = bForNow ? EVerdict::Temporary : EVerdict::Permanent,
            .bTryNextTarget = bForNow};
}

SDeliveryFailure Unforeseen(const Bex::CSimpleString& strText)
{
    Bex::CList<Bex::CSimpleString> lines(false);
    lines.Append(strText);
    return Refused(EKind::Temporary, strText, lines);
}

} // namespace

SDeliveryFailure SDeliveryFailure::OfCaught()
{
    try {
        throw;
    } catch (const Bex::CSocketException& exception) {
        SDeliveryFailure failure = Broken(EKind::Socket, exception);
        failure.bShortage = exception.SocketError() == Platform::SOCKET_TOO_MANY_OPEN ||
                            exception.SocketError() == Platform::SOCKET_NO_BUFFERS;
        return failure;
    } catch (const Bex::CSecurityException& exception) {
        return Broken(EKind::Security, exception);
    } catch (const CSMTPTemporaryException& exception) {
        return Refused(EKind::Temporary, exception.LastLine(), exception.Lines());
    } catch (const CSMTPPermanentException& exception) {
        return Refused(EKind::Permanent, exception.LastLine(), exception.Lines());
    } catch (const Bex::CException& exception) {
        char szText[1024];
        exception.GetMessage(szText, sizeof(szText));
        return Unforeseen(szText);
    } catch (const std::exception& exception) {
        return Unforeseen(exception.what());
    }
}

SAttempt SDeliveryFailure::Outcome() const
{
    constexpr Platform::SError SHORTAGE{Platform::LIB_TOO_MANY_OPEN, Platform::SYS_TOO_MANY_OPEN};
    return {.verdict = verdict, .error = bShortage ? SHORTAGE : Platform::SError()};
}

const char* SDeliveryFailure::Name() const
{
    switch (kind) {
    case EKind::Socket:
        return "socket error";
    case EKind::Security:
        return "security error";
    case EKind::Temporary:
        return "temporary SMTP error";
    default:
        return "permanent SMTP error";
    }
}

Bex::CSimpleString SDeliveryFailure::LogLine(const Bex::CSimpleString& strMessageID) const
{
    auto strLine =
        Bex::CSimpleString::Formatted("mail <%s> failed with %s: %s", strMessageID.Text(), Name(), strText.Text());
    if (!IsRefusal())
        strLine += Bex::CSimpleString::Formatted(" (in File %s at Line %d)", pszSourceFile, iLine);
    return strLine;
}
