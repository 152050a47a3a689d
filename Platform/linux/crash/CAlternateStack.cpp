#include "Platform/linux/crash/CAlternateStack.h"

#include "Platform/linux/crash/CrashRecord.h"

#include <sys/auxv.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Platform {

namespace {

constexpr size_t HANDLER_BYTES = size_t{64} * 1024; // on top of what the kernel saves there

void LetFatalSignalsThrough()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int iSignal : FATAL_SIGNALS) {
        if (iSignal != SIGQUIT) // no fault of a thread: the console's control may hold it back
            sigaddset(&signals, iSignal);
    }
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

} // namespace

CAlternateStack::CAlternateStack()
{
    LetFatalSignalsThrough();
    const auto nPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t nFrame = getauxval(AT_MINSIGSTKSZ); // grows with the vector registers of the processor
    const size_t nBytes = (nPage + HANDLER_BYTES + nFrame + nPage - 1) / nPage * nPage;
    void* const pMemory = mmap(nullptr, nBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (pMemory == MAP_FAILED)
        return;
    stack_t stack{};
    stack.ss_sp = static_cast<char*>(pMemory) + nPage; // below it, a page to run into
    stack.ss_size = nBytes - nPage;
    if (mprotect(stack.ss_sp, stack.ss_size, PROT_READ | PROT_WRITE) != 0 || sigaltstack(&stack, &m_before) != 0) {
        munmap(pMemory, nBytes);
        return;
    }
    m_pMemory = pMemory;
    m_nBytes = nBytes;
}

CAlternateStack::~CAlternateStack()
{
    if (!IsValid())
        return;
    sigaltstack(&m_before, nullptr);
    munmap(m_pMemory, m_nBytes);
}

} // namespace Platform
