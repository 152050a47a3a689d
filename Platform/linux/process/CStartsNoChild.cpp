#include "Platform/CStartsNoChild.h"

#include "Platform/CImmortal.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace Platform {

namespace {

constexpr std::chrono::seconds LONGEST_WAIT(1); ///< of either side: a program may lie on a volume that hangs

struct SGate
{
    std::mutex mutex;
    std::condition_variable changed;
    unsigned nHeld = 0;
    unsigned nStarts = 0; ///< also those that wait, so that their turn comes
};

SGate& Gate()
{
    static CImmortal<SGate> s_gate; // threads that were given up may hold it to the end
    return *s_gate;
}

void Lower(unsigned& nCount)
{
    const std::lock_guard lock(Gate().mutex);
    --nCount;
    Gate().changed.notify_all();
}

} // namespace

CStartsNoChild::CStartsNoChild()
{
    std::unique_lock lock(Gate().mutex);
    Gate().changed.wait_for(lock, LONGEST_WAIT, [] { return Gate().nStarts == 0; });
    ++Gate().nHeld;
}

CStartsNoChild::~CStartsNoChild() { Lower(Gate().nHeld); }

CStartsNoChild::CStart::CStart()
{
    std::unique_lock lock(Gate().mutex);
    ++Gate().nStarts;
    Gate().changed.wait_for(lock, LONGEST_WAIT, [] { return Gate().nHeld == 0; });
}

CStartsNoChild::CStart::~CStart() { Lower(Gate().nStarts); }

} // namespace Platform
