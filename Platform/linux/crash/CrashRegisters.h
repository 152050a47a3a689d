#pragma once

#include <csignal>
#include <cstdint>
#include <sys/procfs.h>
#include <ucontext.h>

/// All that is known of the processor. A new one needs CrashRegisters.cpp only.
namespace Platform {

enum class EFloatingTrap : uint8_t { AsTheSystemSays, Denormal, StackCheck };

/// The state of a thread that crashed. Plain data: it is copied through a pipe.
struct SCrashRegisters
{
    elf_gregset_t general;
    elf_fpregset_t floating;
    uint64_t ui64Instruction; ///< address of the one that failed
    uint64_t ui64Access;      ///< of a failed access: 0 read, 1 write, 8 execution
    bool bNoAddress;          ///< the processor refused the access without telling its address
    EFloatingTrap floatingTrap;
};

constexpr unsigned CODE_BYTES = 4;

/// For use in a signal handler.
void ReadRegisters(const ucontext_t& context, SCrashRegisters& registers);

uint64_t StackPointer(const elf_gregset_t& general);

/// The instruction is one that only the kernel may execute.
bool IsPrivileged(const uint8_t (&code)[CODE_BYTES]);

extern const uint16_t ELF_MACHINE; ///< EM_X86_64 and so on

} // namespace Platform
