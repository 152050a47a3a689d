#include "Platform/linux/crash/CrashRegisters.h"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <iterator>
#include <sys/syscall.h>
#include <unistd.h>

#if defined(__x86_64__)
#include <asm/prctl.h>
#elif defined(__aarch64__)
#include <asm/sigcontext.h>
#else
#error "The crash handler does not know the registers of this processor"
#endif

namespace Platform {

#if defined(__x86_64__)

const uint16_t ELF_MACHINE = EM_X86_64;

namespace {

// Numbers of the processor's exceptions.
constexpr greg_t TRAP_BREAKPOINT = 3;
constexpr greg_t TRAP_PROTECTION = 13;
constexpr greg_t TRAP_X87 = 16;
constexpr greg_t TRAP_SSE = 19;
// Bits of a page fault's error code.
constexpr greg_t FAULT_WRITE = 2;
constexpr greg_t FAULT_FETCH = 16;

static_assert(sizeof(user_regs_struct) == sizeof(elf_gregset_t));
static_assert(sizeof(_libc_fpstate) == sizeof(elf_fpregset_t));

unsigned long long SegmentBase(int iWhich)
{
    unsigned long long ui64Base = 0;
    syscall(SYS_arch_prctl, iWhich, &ui64Base);
    return ui64Base;
}

user_regs_struct GeneralRegisters(const gregset_t& from)
{
    const auto value = [&from](int iRegister) { return static_cast<unsigned long long>(from[iRegister]); };
    user_regs_struct to{};
    to.r15 = value(REG_R15);
    to.r14 = value(REG_R14);
    to.r13 = value(REG_R13);
    to.r12 = value(REG_R12);
    to.rbp = value(REG_RBP);
    to.rbx = value(REG_RBX);
    to.r11 = value(REG_R11);
    to.r10 = value(REG_R10);
    to.r9 = value(REG_R9);
    to.r8 = value(REG_R8);
    to.rax = value(REG_RAX);
    to.rcx = value(REG_RCX);
    to.rdx = value(REG_RDX);
    to.rsi = value(REG_RSI);
    to.rdi = value(REG_RDI);
    to.orig_rax = ~0ULL; // not inside a system call
    to.rip = value(REG_RIP);
    to.cs = value(REG_CSGSFS) & 0xFFFF;
    to.eflags = value(REG_EFL);
    to.rsp = value(REG_RSP);
    to.ss = value(REG_CSGSFS) >> 48;
    to.fs_base = SegmentBase(ARCH_GET_FS);
    to.gs_base = SegmentBase(ARCH_GET_GS);
    return to;
}

EFloatingTrap FloatingTrap(greg_t iTrap, const _libc_fpstate& state)
{
    constexpr unsigned INVALID = 1, DENORMAL = 2, UNDERFLOW_FLAG = 16, STACK_FAULT = 64;
    unsigned dwRaised = 0; // and not masked
    if (iTrap == TRAP_X87)
        dwRaised = state.swd & ~static_cast<unsigned>(state.cwd);
    else if (iTrap == TRAP_SSE)
        dwRaised = state.mxcsr & ~(state.mxcsr >> 7);
    if (iTrap == TRAP_X87 && (dwRaised & INVALID) != 0 && (state.swd & STACK_FAULT) != 0)
        return EFloatingTrap::StackCheck;
    // The system calls this an underflow.
    if ((dwRaised & DENORMAL) != 0 && (dwRaised & UNDERFLOW_FLAG) == 0)
        return EFloatingTrap::Denormal;
    return EFloatingTrap::AsTheSystemSays;
}

} // namespace

void ReadRegisters(const ucontext_t& context, SCrashRegisters& registers)
{
    const gregset_t& from = context.uc_mcontext.gregs;
    const greg_t iTrap = from[REG_TRAPNO];
    const greg_t iError = from[REG_ERR];
    const user_regs_struct general = GeneralRegisters(from);
    std::memcpy(&registers.general, &general, sizeof(general));
    registers.ui64Instruction = general.rip - (iTrap == TRAP_BREAKPOINT ? 1 : 0); // the processor is past it
    registers.ui64Access = (iError & FAULT_FETCH) != 0 ? 8 : (iError & FAULT_WRITE) != 0 ? 1 : 0;
    registers.bNoAddress = iTrap == TRAP_PROTECTION;
    if (registers.bNoAddress)
        registers.ui64Access = 0; // the error code is a segment here
    if (const _libc_fpstate* const pFloating = context.uc_mcontext.fpregs) {
        std::memcpy(&registers.floating, pFloating, sizeof(registers.floating));
        registers.floatingTrap = FloatingTrap(iTrap, *pFloating);
    }
}

uint64_t StackPointer(const elf_gregset_t& general)
{
    user_regs_struct registers;
    std::memcpy(&registers, &general, sizeof(registers));
    return registers.rsp;
}

bool IsPrivileged(const uint8_t (&code)[CODE_BYTES])
{
    // in, out, hlt, cli, sti
    constexpr uint8_t ONE_BYTE[] = {0x6C, 0x6D, 0x6E, 0x6F, 0xE4, 0xE5, 0xE6, 0xE7,
                                    0xEC, 0xED, 0xEE, 0xEF, 0xF4, 0xFA, 0xFB};
    // descriptor tables, clts, invd, wbinvd, control and debug registers, wrmsr, rdmsr
    constexpr uint8_t AFTER_0F[] = {0x00, 0x01, 0x06, 0x08, 0x09, 0x20, 0x21, 0x22, 0x23, 0x30, 0x32};
    const auto* const pPrefixesEnd = std::find_if(std::begin(code), std::end(code) - 2, [](uint8_t by) {
        return by != 0x66 && by != 0xF2 && by != 0xF3 && (by & 0xF0) != 0x40;
    });
    if (*pPrefixesEnd == 0x0F)
        return std::find(std::begin(AFTER_0F), std::end(AFTER_0F), pPrefixesEnd[1]) != std::end(AFTER_0F);
    return std::find(std::begin(ONE_BYTE), std::end(ONE_BYTE), *pPrefixesEnd) != std::end(ONE_BYTE);
}

#elif defined(__aarch64__)

const uint16_t ELF_MACHINE = EM_AARCH64;

namespace {

void ReadExtensions(const mcontext_t& context, SCrashRegisters& registers)
{
    constexpr uint64_t FETCH_FROM_USER = 0x20, DATA_FROM_USER = 0x24, WRITE_BIT = 0x40;
    const auto* p = reinterpret_cast<const unsigned char*>(context.__reserved);
    const auto* const pEnd = p + sizeof(context.__reserved);
    _aarch64_ctx head;
    for (; p + sizeof(head) <= pEnd; p += head.size) {
        std::memcpy(&head, p, sizeof(head));
        if (head.magic == 0 || head.size < sizeof(head))
            return;
        if (head.magic == FPSIMD_MAGIC) {
            fpsimd_context floating;
            std::memcpy(&floating, p, sizeof(floating));
            std::memcpy(&registers.floating.vregs, &floating.vregs, sizeof(floating.vregs));
            registers.floating.fpsr = floating.fpsr;
            registers.floating.fpcr = floating.fpcr;
        } else if (head.magic == ESR_MAGIC) {
            esr_context syndrome;
            std::memcpy(&syndrome, p, sizeof(syndrome));
            const uint64_t ui64Class = syndrome.esr >> 26;
            if (ui64Class == FETCH_FROM_USER)
                registers.ui64Access = 8;
            else if (ui64Class == DATA_FROM_USER && (syndrome.esr & WRITE_BIT) != 0)
                registers.ui64Access = 1;
        }
    }
}

} // namespace

void ReadRegisters(const ucontext_t& context, SCrashRegisters& registers)
{
    const mcontext_t& from = context.uc_mcontext;
    user_regs_struct general{};
    std::copy(std::begin(from.regs), std::end(from.regs), std::begin(general.regs));
    general.sp = from.sp;
    general.pc = from.pc;
    general.pstate = from.pstate;
    static_assert(sizeof(general) == sizeof(elf_gregset_t));
    std::memcpy(&registers.general, &general, sizeof(general));
    registers.ui64Instruction = from.pc;
    registers.ui64Access = 0;
    ReadExtensions(from, registers);
}

uint64_t StackPointer(const elf_gregset_t& general)
{
    user_regs_struct registers;
    std::memcpy(&registers, &general, sizeof(registers));
    return registers.sp;
}

bool IsPrivileged(const uint8_t (&)[CODE_BYTES]) { return false; } // told as an illegal instruction

#endif

} // namespace Platform
