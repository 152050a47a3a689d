#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace Bex {

/// What a thread does now, for whoever looks at the process from outside, and whether it still gets on.
///
/// A thread has one while the object lives, which its owner makes on that thread (CThread does). It gets on as long as
/// it begins or ends steps, waits for events, or says that it is alive; after PATIENCE without any of that it counts
/// as stuck, unless its step has said how long it may take. All that is told by the thread itself, at the cost of
/// looking at the clock; on a thread without an activity it does nothing. Asking may be done on any thread.
class CActivity
{
public:
    class CStep;

    static constexpr uint64_t PATIENCE = 300'000;       ///< milliseconds
    static constexpr uint64_t WITHOUT_END = UINT64_MAX; ///< for what no restart of the process would bring on
    static constexpr size_t LONGEST_TEXT = 255;         ///< of a step, in bytes; a longer one is cut
    static constexpr const char* const BETWEEN_STEPS = "waits";

    /// Of one thread. A value.
    struct SState
    {
        std::string strThread; ///< "local delivery agent"
        unsigned dwThreadId;
        std::string strStep;  ///< "delivers 12.eml"; without control characters, else as others named their files
        uint64_t nSinceTicks; ///< when that began, as Platform::TickCount tells it
        bool bStuck;
        bool bGivenUp; ///< its controller no longer waits for it; such a thread never counts as stuck
    };
    static std::vector<SState> List();                   ///< in the order in which they began
    static std::vector<SState> List(uint64_t nNowTicks); ///< as it stands at that time, for tests

    static void Alive();                      ///< the calling thread gets on with its step
    static void MayTake(uint64_t ui64Millis); ///< from now; up to the end of the calling thread's step
    static void Waits(unsigned dwMillis);     ///< the calling thread begins a wait, of Platform::INFINITE at most
    static void GiveUp(unsigned dwThreadId);  ///< by the controller

    explicit CActivity(std::string_view thread); ///< the calling thread's, for as long as the object lives
    ~CActivity();
    CActivity(const CActivity&) = delete;
    CActivity& operator=(const CActivity&) = delete;

private:
    SState StateAt(uint64_t nNowTicks) const;
    void GoodFor(uint64_t ui64Millis);

    const std::string m_strThread;
    const unsigned m_dwThreadId;
    CActivity* const m_pOuter; ///< the thread's before this one
    std::atomic<bool> m_bGivenUp = false;
    std::atomic<uint64_t> m_nGoodUntil; ///< when it counts as stuck, in ticks
    uint64_t m_nStepEnd = 0;            ///< up to when the step may take, in ticks
    mutable std::mutex m_lock;          ///< around what follows, and the step's text
    const CStep* m_pStep = nullptr;     ///< the innermost one
    uint64_t m_nBetweenSince;           ///< when the last step ended
};

/// Something that a thread does, as long as the object lives on its stack. A step within a step hides it, and may take
/// what is left to the outer one.
class CActivity::CStep
{
public:
    explicit CStep(const char* pszFormat, ...) __attribute__((format(printf, 2, 3)));
    ~CStep();
    CStep(const CStep&) = delete;
    CStep& operator=(const CStep&) = delete;

private:
    friend class CActivity;

    CActivity* const m_pActivity; ///< null: nobody asks for the calling thread's
    const CStep* m_pOuter = nullptr;
    uint64_t m_nOuterEnd = 0;
    uint64_t m_nSince = 0;
    char m_text[LONGEST_TEXT + 1];
};

} // namespace Bex
