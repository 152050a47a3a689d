#include "Bex/CArray.h"
#include "Bex/CHashMap.h"
#include "Bex/CList.h"
#include "Bex/CSimpleString.h"

#include <gtest/gtest.h>
#include <new>
#include <string>
#include <utility>

using namespace Bex;

namespace {
thread_local bool t_bRefuse = false;
}

// The containers' own allocations can be refused for one thread.
void* operator new(size_t nSize, const std::nothrow_t&) noexcept { return t_bRefuse ? nullptr : ::operator new(nSize); }

namespace {

std::string TextOf(const CList<int>& list)
{
    std::string strText;
    for (int iValue : list)
        strText += std::to_string(iValue) + " ";
    return strText;
}

TEST(ListTest, KeepsOrderAndCount)
{
    CList<int> list;
    list.Append(1);
    list.Append(2);
    list.Prepend(0);
    list.Append(1);
    EXPECT_EQ(TextOf(list), "0 1 2 1 ");
    EXPECT_EQ(list.RemoveEqual(*list.Remove(list.begin())), 2U); // an element as the argument
    EXPECT_THROW(list.At(1), CIndexOutOfBoundsException);
    int iFirst = 0;
    EXPECT_TRUE(list.PopFirst(iFirst));
    EXPECT_FALSE(list.PopFirst(iFirst));
    list.Prepend(iFirst);
    list.AppendAll(list);
    CList<int> copy(list);
    const CList<int> moved(std::move(list));
    copy.Append(3);
    EXPECT_EQ(TextOf(moved), "2 2 ");
    EXPECT_EQ(TextOf(copy), "2 2 3 ");
}

TEST(ListTest, RefusedMemoryLeavesListsAndMapsAsTheyWere)
{
    CList<int> list;
    CHashMap<CSimpleString, int> map;
    list.Append(1);
    const CSimpleString strKey("key");
    t_bRefuse = true;
    EXPECT_THROW(list.Append(2), COutOfMemoryException);
    EXPECT_THROW(list.AppendAll(list), COutOfMemoryException);
    EXPECT_THROW(CList<int>(), COutOfMemoryException);
    EXPECT_THROW(map.Set(strKey, 1), COutOfMemoryException);
    t_bRefuse = false;
    EXPECT_EQ(TextOf(list), "1 ");
    EXPECT_EQ(map.Count(), 0U);
}

TEST(ArrayTest, GrowsAsDocumented)
{
    CArray<char> array;
    array.SetSize(100);
    EXPECT_EQ(array.Capacity(), 100U);
    array[99] = 'x';
    array.SetSize(101);
    EXPECT_EQ(array.Capacity(), 112U);
    EXPECT_EQ(array[99], 'x');
    array.SetSize(50);
    array.SetSize(100);
    EXPECT_EQ(array[99], 0); // exposed anew
    EXPECT_THROW(array[100], CIndexOutOfBoundsException);
    array.SetSize(0, 50);
    EXPECT_EQ(array.Capacity(), 0U);
    array.SetSize(10);
    array.SetSize(11);
    EXPECT_EQ(array.Capacity(), 60U);
}

TEST(HashMapTest, WalksABucketInTheOrderOfTheFirstSet)
{
    CHashMap<CSimpleString, int> map;
    EXPECT_EQ((CHashMap<CSimpleString, int>::Hash("\xFF")), 5381U * 33 - 1); // characters are signed
    map.Set("b@", 1); // "b@" and "aa" have one hash, as 33 * 'b' + '@' is 33 * 'a' + 'a'
    map.Set("aa", 2);
    map.Set("AA", 4);
    EXPECT_TRUE(map.Remove(map.Find("b@")->key));
    EXPECT_FALSE(map.Remove("b@"));
    map.Set("b@", 3);
    map.Set("aa", 5);
    std::string strChain;
    for (CHashMap<CSimpleString, int>::CIterator it(map); it; ++it) {
        if (it->nBucket == map.Find("aa")->nBucket)
            strChain += std::string(it->key.View()) + "=" + std::to_string(it->value) + " ";
    }
    EXPECT_EQ(strChain, "aa=5 b@=3 ");
}

} // namespace
