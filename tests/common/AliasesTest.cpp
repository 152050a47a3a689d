#include "Bex/TextFunctions.h"
#include "CAccountWorld.h"
#include "Common/CPatternSet.h"

#include <bit>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <sys/resource.h>
#include <vector>

using Bex::CSimpleString;

namespace {

void LoadAliases(const CAccountWorld& world, const char* pszText)
{
    ASSERT_TRUE(Aliases().Load(CSimpleString(world.Directory().Write("aliases", pszText))));
}

TEST(AliasesTest, LoadDropsAndCountsFaultyLines)
{
    const CAccountWorld world({"bob"}, "l.example\n");
    LoadAliases(world, "Info: bob\n"        // kept, in lower case
                       "sales: info\n"      // kept: in one step to a user
                       "far: x@r.example\n" // kept
                       "further: far\n"     // in one step to an address, which is no user
                       "caps: Bob\n"        // user names are lower case
                       "x@r.example: bob\n" // not ours
                       "@l.example: bob\n"  // no local part
                       "bob: BOB\n"         // itself
                       "list: bob, ann\n"   // one target only
                       "any@l.example: any@l.example\n");
    EXPECT_EQ(Aliases().GoodEntries(), 3);
    EXPECT_EQ(Aliases().FaultyEntries(), 7);
    EXPECT_EQ(Aliases().Count(), 3u);
    EXPECT_EQ(Aliases().Get("info"), "bob");
    EXPECT_EQ(Aliases().Get("sales"), "bob");
}

TEST(AliasesTest, ResolvesByTheMostSpecificRule)
{
    const CAccountWorld world({"bob", "ann"}, "l.example\nm.example\n");
    LoadAliases(world, "*@l.example: catch@r.example\n"
                       "i*@l.example: i@r.example\n"
                       "info@l.example: info@r.example\n"
                       "desk: ann\n"
                       "b?b@m.example: bee@r.example\n");
    const std::pair<const char*, const char*> CASES[] = {{"INFO@L.example", "info@r.example"},
                                                         {"info+x@l.example", "info@r.example"},
                                                         {"infos@l.example", "i@r.example"},
                                                         {"+x@l.example", "catch@r.example"},
                                                         {"a*b@l.example", "catch@r.example"},
                                                         {"bob@m.example", "bee@r.example"},
                                                         {"ann+list@m.example", "ann"},
                                                         {"DESK@m.example", "ann"},
                                                         {"Ann@m.example", ""},
                                                         {"ann+x", "ann"},
                                                         {"ann@", ""},
                                                         {"", ""}};
    for (const auto& [pszAddress, pszTarget] : CASES)
        EXPECT_EQ(Aliases().ResolveRecipient(pszAddress), pszTarget) << pszAddress;
}

TEST(AliasesTest, ALongChainAmongThousandsOfPatternsLeadsToItsEnd)
{
    const CAccountWorld world({"bob"}, "l.example\n");
    std::string strText;
    for (int n = 1; n <= 10000; ++n) {
        const std::string strNumber = std::to_string(n);
        strText += "a*" + strNumber + "*z@l.example: axxz@l.example\n" + strNumber + "@l.example: ";
        strText += std::to_string(n + 1) + "@l.example\n";
        strText += "*0*1*2*3*" + strNumber + "*q@l.example: 01230123r" + strNumber + "q@l.example\n";
    }
    LoadAliases(world, (strText + "10001@l.example: bob\n").c_str());
    Aliases().PreresolveAliases();
    EXPECT_EQ(Aliases().Count(), 10001u); // the patterns led nowhere
    EXPECT_EQ(Aliases().Get("1@l.example"), "bob");
}

TEST(AliasesTest, ALongChainGoesWithItsEndWhichLosesOneTargetAfterTheOther)
{
    const CAccountWorld world({"bob"}, "l.example\n");
    const auto inFirstBucket = [](auto makeKey) { // so that the table's order is the file's
        for (;;) {
            if (const std::string strKey = makeKey() + "@l.example"; CAliases::Hash(strKey) % CAliases::BUCKETS == 0)
                return strKey;
        }
    };
    std::mt19937 random(25);
    int iNumber = 0;
    std::string strText;
    std::string strLink = inFirstBucket([&] { return std::to_string(++iNumber); });
    for (int n = 20000; n > 0; --n) {
        strText += strLink + ": ";
        strLink =
            n > 1 ? inFirstBucket([&] { return std::to_string(++iNumber); }) : std::string(40, 'e') + "@l.example";
        const auto pattern = [&] {
            std::string strPattern(40, 'e');
            for (auto bits = random(); bits != 0; bits &= bits - 1)
                strPattern[static_cast<size_t>(std::countr_zero(bits))] = '?';
            return strPattern;
        };
        strText += strLink + "\n" + inFirstBucket(pattern) + ": nowhere@l.example\n";
    }
    LoadAliases(world, strText.c_str());
    Aliases().PreresolveAliases();
    EXPECT_EQ(Aliases().Count(), 0u);
}

TEST(AliasesTest, ALongAddressTakesLittleMemory)
{
    std::vector<std::string> texts;
    std::string strAddress;
    for (int n = 0; n < 6000; ++n) { // a hundred words of which ten patterns begin alike
        texts.push_back("*w" + std::to_string(n / 10 % 100) + "w*@" + std::to_string(n % 10));
        strAddress += texts.back().substr(1, texts.back().find('w', 2) - 1);
    }
    texts.resize(1000);
    std::vector<CPatternSet::SPattern> patterns;
    for (const std::string& strPattern : texts)
        patterns.push_back({strPattern, static_cast<CPatternSet::Id>(patterns.size())});
    struct rusage before = {}, after = {};
    getrusage(RUSAGE_SELF, &before);
    EXPECT_EQ(CPatternSet(patterns).FindBest(strAddress + "w@0123456789x"), CPatternSet::NONE);
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 << 10); // KiB
}

TEST(AliasesTest, FindsThePatternThatTryingThemInOrderFinds)
{
    std::mt19937 random(25);
    const auto text = [&](std::string_view alphabet, size_t nMost) {
        std::string strText(random() % nMost, ' ');
        for (char& c : strText)
            c = alphabet[random() % alphabet.size()];
        return strText;
    };
    for (size_t nRound = 0; nRound < 200; ++nRound) {
        const size_t nMost = nRound % 10 == 0 ? 100 : 14;
        std::vector<std::string> texts(600);
        std::vector<CPatternSet::SPattern> patterns;
        for (std::string& strPattern : texts) {
            strPattern = text(nRound % 2 == 0 ? "abq**?" : "abq?", nMost);
            patterns.push_back({strPattern, static_cast<CPatternSet::Id>(patterns.size())});
        }
        CPatternSet set(patterns);
        for (int n = 0; n < 100; ++n) {
            const std::string strText = text("aBq", nMost);
            const auto best = std::ranges::find_if(texts, std::bind_front(&Bex::WildcardMatch, strText));
            const auto found = set.FindBest(strText);
            ASSERT_EQ(found, best != texts.end() ? best - texts.begin() : CPatternSet::NONE) << strText;
            set.Remove(found);
            if (found != CPatternSet::NONE)
                texts[found] = "-";
        }
    }
}

/// The rules, walked naively: entries in the table's order, everything looked up by trying all of them.
class CNaiveAliases
{
public:
    explicit CNaiveAliases(const CAliases& table)
    {
        for (CAliases::CIterator node(table); node; ++node)
            m_entries.push_back({std::string(node->key), std::string(node->value)});
    }
    const std::string* Lookup(const std::string& strAddress) const
    {
        const SEntry* pBest = nullptr;
        for (const SEntry& entry : m_entries) {
            if (entry.strKey == strAddress)
                return &entry.strValue;
            if (!strAddress.empty() && Bex::WildcardMatch(strAddress, entry.strKey) &&
                (pBest == nullptr || entry.strKey.size() > pBest->strKey.size()))
                pBest = &entry;
        }
        return pBest != nullptr ? &pBest->strValue : nullptr;
    }
    std::string Resolve(std::string strAddress) const
    {
        const size_t nAt = strAddress.find('@');
        const std::string strDomain = nAt != std::string::npos ? strAddress.substr(nAt + 1) : "";
        const std::string strLocal = strAddress.substr(0, std::min(nAt, strAddress.find('+')));
        strAddress = strDomain.empty() ? strLocal : strLocal + "@" + strDomain;
        const std::string* pTarget = Lookup(strAddress);
        for (const std::string& strOther : {"*@" + strDomain, strLocal}) {
            if (pTarget == nullptr && !strDomain.empty())
                pTarget = Lookup(strOther);
        }
        if (pTarget != nullptr)
            return *pTarget;
        return Users().IsUser(strLocal) ? strLocal : "";
    }
    bool PreresolveOne()
    {
        for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry) {
            const bool bAddress = entry->strValue.find('@') != std::string::npos;
            if (bAddress ? !IsLocalAddress(entry->strValue) : Users().IsUser(entry->strValue))
                continue;
            const std::string strNew = bAddress ? Resolve(entry->strValue) : "";
            entry->before.push_back(entry->strValue);
            if (strNew.empty() || Bex::EqualNoCase(strNew, entry->strKey) ||
                Bex::EqualNoCase(strNew, entry->strValue) ||
                std::ranges::find(entry->before, strNew) != entry->before.end())
                m_entries.erase(entry);
            else
                entry->strValue = strNew;
            return true;
        }
        return false;
    }
    std::string Text() const
    {
        std::string strText;
        for (const SEntry& entry : m_entries)
            strText += entry.strKey + ": " + entry.strValue + "\n";
        return strText;
    }

private:
    struct SEntry
    {
        std::string strKey;
        std::string strValue;
        std::vector<std::string> before{}; ///< values it had: coming back to one would go on for ever
    };
    std::vector<SEntry> m_entries;
};

TEST(AliasesTest, IndexAndPreresolutionGiveWhatTheNaiveWalkGives)
{
    const CAccountWorld world({"a", "b"}, "l\nm\n");
    std::mt19937 random(20141224);
    const auto pick = [&](std::initializer_list<const char*> choices) {
        return std::string(choices.begin()[random() % choices.size()]);
    };
    const auto address = [&](bool bPattern) {
        std::string strLocal = pick({"a", "b", "c", "d", "e", "f", "A", "C", "c+x", "d+y"});
        if (bPattern && random() % 3 == 0)
            strLocal = pick({"*", "?", "c*", "*d", "?*", "**", "f?", "c**", "*?*"});
        return strLocal + pick({"", "@l", "@l", "@m", "@L", bPattern ? "@*" : "@r"});
    };
    for (int iRound = 0; iRound < 30000; ++iRound) {
        CAliases table;
        for (size_t n = 2 + random() % 12; n > 0; --n)
            table.Set(CSimpleString(address(true)).Lowered(), CSimpleString(address(random() % 20 == 0)));
        CNaiveAliases naive(table);
        const std::string strTable = naive.Text();
        for (int n = 0; n < 8; ++n) {
            const std::string strAddress = address(n == 0);
            ASSERT_EQ(table.ResolveRecipient(strAddress).View(), naive.Resolve(strAddress)) << strAddress << " in\n"
                                                                                            << strTable;
        }
        int iAsks = iRound % 2;
        ASSERT_FALSE(table.PreresolveAliases([&iAsks] { return iAsks-- == 0; }));
        ASSERT_EQ(CNaiveAliases(table).Text(), strTable); // as if it had not begun
        ASSERT_TRUE(table.PreresolveAliases());
        while (naive.PreresolveOne()) {
        }
        ASSERT_EQ(CNaiveAliases(table).Text(), naive.Text()) << "from\n" << strTable;
    }
}

} // namespace
