// The pieces of a delivery, one by one.

#include "Bex/TextFunctions.h"
#include "Common/CAliases.h"
#include "Common/CContentDigest.h"
#include "Common/CMD5.h"
#include "Common/CMail.h"
#include "Common/CSHA1.h"
#include "Common/Encodings.h"
#include "Common/Globals.h"
#include "Common/NormalizeAddress.h"
#include "Platform/linux/file/ShareClaim.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/file.h>
#include <unistd.h>

namespace {

void ParsesAnEntity(benchmark::State& state)
{
    std::string strMail = "Message-ID: <1@far.example>\r\nFrom: \"Bob\" <bob@far.example>\r\nSubject: bench\r\n\r\n";
    strMail.append(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        CMail mail;
        benchmark::DoNotOptimize(mail.Parse(strMail));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(strMail.size()));
}
BENCHMARK(ParsesAnEntity)->Arg(4 << 10)->Arg(64 << 10)->Arg(1 << 20);

void SearchesParts(benchmark::State& state)
{
    std::string strMail = "Content-Type: multipart/mixed; boundary=b\r\n\r\n";
    for (int64_t n = 0; n < state.range(0); ++n)
        strMail += "--b\r\nContent-Type: text/plain\r\n\r\nnothing to be found in here\r\n";
    strMail += "--b--\r\n";
    CMail mail;
    mail.Parse(strMail);
    Bex::CSimpleString strPhrase;
    const auto Never = [](void*, CTextPieces&, Bex::CSimpleString&) { return false; };
    for (auto _ : state)
        benchmark::DoNotOptimize(CMessagePart::SearchTextParts(mail, Never, nullptr, strPhrase));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(SearchesParts)->Arg(10)->Arg(1000)->Arg(100000);

void CopiesForARecipient(benchmark::State& state)
{
    CMail mail;
    mail.Parse("From: <bob@far.example>\r\nSubject: bench\r\n\r\n" + std::string(64 << 10, 'x'));
    const Bex::CSimpleString strRecipient("ann@example.org");
    for (auto _ : state)
        benchmark::DoNotOptimize(CMail(mail, strRecipient));
}
BENCHMARK(CopiesForARecipient);

void DecodesBase64(benchmark::State& state)
{
    const std::string strBytes(64 << 10, 'x');
    const Bex::CArray<char> encoded = Base64Encode(strBytes.data(), static_cast<uint32_t>(strBytes.size()));
    for (auto _ : state)
        benchmark::DoNotOptimize(Base64Decode(encoded.View()));
    state.SetBytesProcessed(state.iterations() * encoded.Size());
}
BENCHMARK(DecodesBase64);

template <class TDigest>
void Digests(benchmark::State& state)
{
    const std::string strBytes(64 << 10, 'x');
    for (auto _ : state) {
        TDigest digest;
        digest.Update(strBytes.data(), strBytes.size());
        benchmark::DoNotOptimize(digest.Finalise());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(strBytes.size()));
}
BENCHMARK(Digests<CMD5>);
BENCHMARK(Digests<CSHA1>);

void ComparesContents(benchmark::State& state)
{
    const std::string strBytes(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        CContentDigest digest;
        digest.Add(strBytes.data(), strBytes.size());
        benchmark::DoNotOptimize(digest.Value());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ComparesContents)->Arg(4 << 10)->Arg(64 << 10);

/// A queue file is opened and locked so; beside it a lock of the whole file, which cannot tell how it is shared.
template <class TLock>
void OpensAndLocks(benchmark::State& state, TLock Lock)
{
    std::FILE* pFile = std::tmpfile();
    const std::string strPath = "/proc/self/fd/" + std::to_string(fileno(pFile));
    for (auto _ : state) {
        const int iFile = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
        if (!Lock(iFile))
            state.SkipWithError("not locked");
        close(iFile);
    }
    std::fclose(pFile);
}
BENCHMARK_CAPTURE(OpensAndLocks, Claims,
                  [](int iFile) { return Platform::ClaimShare(iFile, {.share = Platform::EShare::Exclusive}); });
BENCHMARK_CAPTURE(OpensAndLocks, Whole, [](int iFile) { return flock(iFile, LOCK_EX | LOCK_NB) == 0; });

void NormalizesAnAddress(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(NormalizeAddress("\"Ann A. Example\" <Ann@Example.ORG>"));
}
BENCHMARK(NormalizesAnAddress);

void MatchesAWildcard(benchmark::State& state)
{
    const std::string strText(200, 'a');
    const std::string strPattern = "*a*a*a*a*a*a*a*b";
    for (auto _ : state)
        benchmark::DoNotOptimize(Bex::WildcardMatch(strText, strPattern));
}
BENCHMARK(MatchesAWildcard);

/// A table that holds this text, read as from its own file.
template <class TTable>
bool LoadText(TTable& table, const std::string& strText)
{
    const std::string strPath = std::filesystem::temp_directory_path() / ("bench." + std::to_string(getpid()));
    std::ofstream(strPath) << strText;
    const bool bLoaded = table.Load(Bex::CSimpleString(strPath));
    std::filesystem::remove(strPath);
    return bLoaded;
}

/// One chain of so many links, among twice as many patterns of which each begins or ends like some of them: nearly as
/// many links a second however long the chain is.
void FollowsAChainOfAliases(benchmark::State& state)
{
    std::string strText;
    for (int64_t n = 1; n <= state.range(0); ++n) {
        const std::string strNumber = std::to_string(n);
        const std::string strNext = n < state.range(0) ? std::to_string(n + 1) + "@example.org" : "bob@far.example";
        strText += strNumber + "@example.org: " + strNext + "\na*" + strNumber + "*z@example.org: axxz@example.org\n";
        strText += "*0*1*2*3*" + strNumber + "*q@example.org: 01230123r" + strNumber + "q@example.org\n";
    }
    if (!LoadText(LocalDomains(), "example.org\n"))
        state.SkipWithError("no domains");
    for (auto _ : state) {
        state.PauseTiming();
        CAliases aliases;
        if (!LoadText(aliases, strText))
            state.SkipWithError("no aliases");
        state.ResumeTiming();
        aliases.PreresolveAliases();
        if (aliases.Get("1@example.org") != "bob@far.example")
            state.SkipWithError("the chain does not lead to its end");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(FollowsAChainOfAliases)->Arg(2500)->Arg(10000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
