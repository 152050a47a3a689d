#pragma once

#include "SMTPc/CSMTPConnection.h"

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>

/// Open connections that no mail has for now, each for so many seconds at most. When there are too many, the one that
/// has been here longest makes room. What ends here is told QUIT, and its answer waited for by nobody; of these, too,
/// there are no more than that.
///
/// Shared by the delivery threads, which bring and take, and the remote agent, which has them end; no operation waits
/// for a host.
class CWaitingConnections
{
public:
    static constexpr size_t MOST = 100;

    explicit CWaitingConnections(unsigned nSeconds) : m_nSeconds(nSeconds) {} ///< 0: takes none
    ~CWaitingConnections();
    CWaitingConnections(const CWaitingConnections&) = delete;
    CWaitingConnections& operator=(const CWaitingConnections&) = delete;

    bool Takes() const { return m_nSeconds > 0; }
    void Bring(std::unique_ptr<CSMTPConnection> pConnection);          ///< between two mails
    std::unique_ptr<CSMTPConnection> TakeTo(const CSmartHost& target); ///< the last one brought; null: there is none
    void EndOld();        ///< and lets go of those that have ended, or that their hosts have closed
    void EndAll();        ///< likewise
    size_t Count() const; ///< with those that have not answered QUIT

private:
    struct SWaiting
    {
        std::unique_ptr<CSMTPConnection> pConnection;
        uint64_t nUntil; ///< in ticks
    };
    using CWaiting = std::list<SWaiting>; ///< in the order of their ends

    void End(uint64_t nBy);
    static void Close(CWaiting& connections);
    template <class TIs>
    static void MoveIf(CWaiting& from, CWaiting& to, TIs Is)
    {
        for (auto it = from.begin(); it != from.end();) {
            const auto one = it++;
            if (Is(*one))
                to.splice(to.end(), from, one);
        }
    }

    const unsigned m_nSeconds;
    mutable std::mutex m_lock; ///< around the lists
    CWaiting m_waiting;
    CWaiting m_parting; ///< were told QUIT
};
