#pragma once

#include "Bex/CAbandonment.h"
#include "Bex/CList.h"
#include "Bex/CSimpleString.h"
#include "SMTPc/SAttempt.h"

#include <optional>

/// Why a target did not take a mail, or why a mail has no target: log line, report and verdict are made of this.
/// A value.
struct SDeliveryFailure
{
    enum class EKind { Socket, Security, Temporary, Permanent };

    EKind kind;
    Bex::CSimpleString strText;                  ///< the error's, or the last line of the session
    Bex::CList<Bex::CSimpleString> lines{false}; ///< of a refusal: the session's transcript, or the one line there is
    EVerdict verdict;
    bool bTryNextTarget;
    const char* pszSourceFile = ""; ///< where a broken connection was noticed
    int iLine = 0;
    bool bShortage = false; ///< of sockets, here and for now

    /// Of the exception that is being handled; what neither SMTP nor the network raises is a refusal for now.
    static SDeliveryFailure OfCaught();
    SAttempt Outcome() const; ///< of an attempt that ends with it
    /// The server said no, rather than that the connection broke: it can still be parted from politely.
    bool IsRefusal() const { return kind == EKind::Temporary || kind == EKind::Permanent; }
    const char* Name() const; ///< of the kind, as "socket error"
    Bex::CSimpleString LogLine(const Bex::CSimpleString& strMessageID) const;
};

/// What kept the step from its end; nothing when it got there.
template <class TStep>
std::optional<SDeliveryFailure> FailureOf(TStep step)
{
    try {
        step();
        return std::nullopt;
    } catch (const Bex::CAbandonment&) {
        throw;
    } catch (...) {
        return SDeliveryFailure::OfCaught();
    }
}
