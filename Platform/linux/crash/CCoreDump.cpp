#include "Platform/linux/crash/CCoreDump.h"

#include "Platform/Errors.h"
#include "Platform/FileSystem.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/crash/CoreNotes.h"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace Platform {

namespace {

constexpr uint64_t LARGEST_MAPPING = 64 << 20; // bytes, as much as a heap takes at once
constexpr uint64_t LARGEST_STACK = 8 << 20;    // bytes kept of a stack in a mapping larger than that
constexpr uint64_t BELOW_STACK = 128;          // bytes below the stack pointer that a function may use
constexpr size_t CHUNK = size_t{256} * 1024;
constexpr size_t MOST_SEGMENTS = 65'000; // their number has 16 bits, and the largest numbers mean something else

uint32_t FlagsOf(const SMapping& mapping)
{
    return (mapping.bRead ? uint32_t{PF_R} : 0) | (mapping.bWrite ? uint32_t{PF_W} : 0) |
           (mapping.bExecute ? uint32_t{PF_X} : 0);
}

bool IsZero(const char* pBytes, size_t nBytes)
{
    return std::all_of(pBytes, pBytes + nBytes, [](char c) { return c == 0; });
}

Elf64_Ehdr FileHeader(size_t nSegments)
{
    Elf64_Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_type = ET_CORE;
    header.e_machine = ELF_MACHINE;
    header.e_version = EV_CURRENT;
    header.e_phoff = sizeof(header);
    header.e_ehsize = sizeof(header);
    header.e_phentsize = sizeof(Elf64_Phdr);
    header.e_phnum = static_cast<uint16_t>(nSegments + 1);
    return header;
}

} // namespace

CCoreDump::CCoreDump(const SCrashRecord& record)
    : m_record(record), m_ui64Page(static_cast<uint64_t>(sysconf(_SC_PAGESIZE)))
{}

bool CCoreDump::Write(const char* pszPath)
{
    SOpenMode mode;
    mode.access = EAccess::Write;
    mode.share = EShare::Exclusive;
    mode.bCreateNew = true;
    mode.bOnlyRegular = true;
    RemoveFile(pszPath); // whatever has the name is never written to
    if (!m_file.Open(pszPath, mode))
        return false;
    const bool bWritten = WriteContent();
    if (m_file.Close() && bWritten)
        return true;
    const SError error = LastError();
    RemoveFile(pszPath);
    SetLastError(error);
    return false;
}

bool CCoreDump::WriteContent()
{
    const CDescriptor memory(
        open(("/proc/" + std::to_string(m_record.iProcess) + "/mem").c_str(), O_RDONLY | O_CLOEXEC));
    if (!memory.IsValid())
        return FailWithErrno();
    const CStoppedThreads threads(m_record.iProcess, m_record.iThread);
    const std::vector<SMapping> mappings = ReadMemoryMap(m_record.iProcess, true);
    PlanSegments(mappings, threads);
    if (!WriteHeaders(BuildCoreNotes(m_record, threads.Threads(), mappings)))
        return false;
    for (const SSegment& segment : m_segments) {
        if (!CopySegment(memory.Get(), segment))
            return false;
    }
    const int64_t iSize = m_file.Seek(0, ESeekFrom::Current);
    return iSize >= 0 && Succeeded(ftruncate(m_file.NativeHandle(), iSize)); // zeros at the end are not written
}

void CCoreDump::PlanSegments(const std::vector<SMapping>& mappings, const CStoppedThreads& threads)
{
    std::vector<uint64_t> stackPointers{StackPointer(m_record.registers.general)};
    for (const SStoppedThread& thread : threads.Threads())
        stackPointers.push_back(StackPointer(thread.general));
    std::sort(stackPointers.begin(), stackPointers.end());

    for (const SMapping& mapping : mappings) {
        if (!mapping.bRead || mapping.bShared)
            continue;
        if (mapping.ui64Own > 0 && mapping.Size() > LARGEST_MAPPING)
            PlanStacks(mapping, stackPointers);
        else if (mapping.ui64Own > 0 || mapping.strName == "[vdso]")
            m_segments.push_back({mapping.ui64Start, mapping.Size(), FlagsOf(mapping)});
        else if (mapping.IsOfFile() && mapping.ui64Offset == 0) // the head of a module tells its build
            m_segments.push_back({mapping.ui64Start, m_ui64Page, FlagsOf(mapping)});
    }
    m_segments.resize(std::min(m_segments.size(), MOST_SEGMENTS));
}

void CCoreDump::PlanStacks(const SMapping& mapping, const std::vector<uint64_t>& stackPointers)
{
    uint64_t ui64Planned = mapping.ui64Start;
    for (const uint64_t ui64Pointer : stackPointers) {
        if (ui64Pointer < mapping.ui64Start || ui64Pointer >= mapping.ui64End)
            continue;
        const uint64_t ui64Lowest = (ui64Pointer - BELOW_STACK) / m_ui64Page * m_ui64Page;
        const uint64_t ui64Start = std::max(ui64Planned, ui64Lowest);
        const uint64_t ui64End = std::min(mapping.ui64End, ui64Lowest + LARGEST_STACK);
        if (ui64Start < ui64End)
            m_segments.push_back({ui64Start, ui64End - ui64Start, FlagsOf(mapping)});
        ui64Planned = std::max(ui64Planned, ui64End);
    }
}

/// The file's head, the table of what is in it, the notes; then the memory, page by page.
bool CCoreDump::WriteHeaders(const std::string& strNotes)
{
    const auto roundUp = [this](uint64_t ui64) { return (ui64 + m_ui64Page - 1) / m_ui64Page * m_ui64Page; };
    const Elf64_Ehdr header = FileHeader(m_segments.size());
    std::vector<Elf64_Phdr> table(m_segments.size() + 1);
    uint64_t ui64Offset = sizeof(header) + table.size() * sizeof(Elf64_Phdr);
    table[0].p_type = PT_NOTE;
    table[0].p_offset = ui64Offset;
    table[0].p_filesz = strNotes.size();
    table[0].p_align = 4;
    ui64Offset = roundUp(ui64Offset + strNotes.size());
    const auto iMemory = static_cast<int64_t>(ui64Offset);
    for (size_t i = 0; i < m_segments.size(); ++i) {
        Elf64_Phdr& entry = table[i + 1];
        entry.p_type = PT_LOAD;
        entry.p_flags = m_segments[i].dwFlags;
        entry.p_offset = ui64Offset;
        entry.p_vaddr = m_segments[i].ui64Start;
        entry.p_filesz = m_segments[i].ui64Bytes;
        entry.p_memsz = m_segments[i].ui64Bytes;
        entry.p_align = m_ui64Page;
        ui64Offset += m_segments[i].ui64Bytes;
    }
    return m_file.Write(&header, sizeof(header)) >= 0 &&
           m_file.Write(table.data(), table.size() * sizeof(Elf64_Phdr)) >= 0 &&
           m_file.Write(strNotes.data(), strNotes.size()) >= 0 && m_file.Seek(iMemory, ESeekFrom::Begin) >= 0;
}

bool CCoreDump::CopySegment(int iMemory, const SSegment& segment)
{
    const auto pBuffer = std::make_unique<char[]>(CHUNK);
    const uint64_t ui64End = segment.ui64Start + segment.ui64Bytes;
    for (uint64_t ui64At = segment.ui64Start; ui64At < ui64End;) {
        const size_t nWanted = std::min<uint64_t>(CHUNK, ui64End - ui64At);
        const ssize_t nRead = pread(iMemory, pBuffer.get(), nWanted, static_cast<off_t>(ui64At));
        size_t nCopied = nRead > 0 ? static_cast<size_t>(nRead) : 0;
        if (nCopied % m_ui64Page != 0 || nCopied == 0) { // a page that cannot be read is shown as zeros
            const size_t nWhole = (nCopied / m_ui64Page + 1) * m_ui64Page;
            std::memset(pBuffer.get() + nCopied, 0, nWhole - nCopied);
            nCopied = nWhole;
        }
        if (!CopyPages(pBuffer.get(), nCopied))
            return false;
        ui64At += nCopied;
    }
    return true;
}

/// Pages of zeros become holes, so that a large stack hardly used costs nothing.
bool CCoreDump::CopyPages(const char* pFrom, size_t nBytes)
{
    for (size_t nAt = 0; nAt < nBytes; nAt += m_ui64Page) {
        const bool bHole = IsZero(pFrom + nAt, m_ui64Page);
        const int64_t iResult = bHole ? m_file.Seek(static_cast<int64_t>(m_ui64Page), ESeekFrom::Current)
                                      : m_file.Write(pFrom + nAt, m_ui64Page);
        if (iResult < 0)
            return false;
    }
    return true;
}

} // namespace Platform
