#include <memory>
#include <set>

#include "test_helpers.h"

#include "orvik/hashmap.h"

namespace orvik {
namespace {

using testing::ElementsAre;

TEST(BaseArray, CapacityByRequest) {
    struct Case {
        Int first, second;
        RESIZEFLAGS flags;
        Int capacity;
    };
    const Case cases[] = {
        {17, 17, RESIZEFLAGS::DEFAULT, 32},                                           // the first request, rounded up
        {1, 17, RESIZEFLAGS::DEFAULT, 48},                                            // (16 + 16) * 3 / 2
        {16, 1000, RESIZEFLAGS::DEFAULT, 1504},                                       // (16 + 984) * 3 / 2 = 1500
        {17, 33, RESIZEFLAGS::FIT_TO_SIZE, 33}, {5, 3, RESIZEFLAGS::FIT_TO_SIZE, 5},  // shrinking keeps the memory
    };
    for (const Case& c : cases) {
        BaseArray<uint8_t> array;
        ASSERT_TRUE(array.Resize(c.first, c.flags));
        ASSERT_TRUE(array.Resize(c.second, c.flags));
        EXPECT_EQ(array.GetCapacity(), c.capacity) << c.first << " then " << c.second;
        EXPECT_EQ(array.GetCount(), c.second);
    }
}

TEST(BaseArray, NewElementsHaveTheirDefault) {
    struct Initialised {
        int a = 7;
    };
    BaseArray<Initialised> initialised;
    BaseArray<int> plain;
    for (const Int count : {3, 40, 4, 50}) {
        ASSERT_TRUE(initialised.Resize(count) && plain.Resize(count));
        EXPECT_TRUE(std::all_of(initialised.begin(), initialised.end(), [](auto& e) { return e.a == 7; }));
        EXPECT_TRUE(std::all_of(plain.begin() + std::min(count, Int(4)), plain.end(), [](int e) { return e == 0; }));
        std::fill(plain.begin(), plain.end(), -1);
    }
}

TEST(BaseArray, InsertEraseAndOwnershipOfElements) {
    BaseArray<std::shared_ptr<int>> array;
    auto watched = std::make_shared<int>(0);
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(array.Append(watched));
    ASSERT_TRUE(array.Insert(5, std::make_shared<int>(5)));
    ASSERT_TRUE(array.Insert(-3, std::make_shared<int>(99)));
    EXPECT_EQ(std::pair(*array[5], *array.GetLast()), std::pair(5, 99));
    array.Erase(5);
    array.Erase(18, 100);
    array.Erase(-1);
    array.Erase(18);
    EXPECT_EQ(std::pair(array.GetCount(), watched.use_count()), std::pair(Int(18), 19l));
    array.Pop();
    EXPECT_EQ(watched.use_count(), 18);
    array.Reset();
    EXPECT_EQ(watched.use_count(), 1);
    array.Pop();
    EXPECT_TRUE(array.IsEmpty());
}

TEST(BaseArray, AppendsPartsOfItself) {
    BaseArray<std::string> array;
    for (int i = 0; i < 16; ++i)
        ASSERT_TRUE(array.Append("element number " + std::to_string(i)));
    ASSERT_TRUE(array.AppendBlock(array.ToBlock().subspan(3, 10)));
    ASSERT_EQ(array.GetCount(), 26);
    for (int i = 0; i < 26; ++i)
        EXPECT_EQ(array[i], "element number " + std::to_string(i < 16 ? i : i - 13));
}

TEST(BaseArray, AbsurdSizesAreErrors) {
    BaseArray<Int> array;
    ASSERT_TRUE(array.Append(1));
    for (const Int count : {Int(-1), INT64_MAX, INT64_MAX / 8 + 1, Int(1) << 60})
        EXPECT_EQ(ErrorIdOf(array.Resize(count)), errorid::kOutOfMemory) << count;
    EXPECT_EQ(ErrorIdOf(array.Reserve(INT64_MAX)), errorid::kOutOfMemory);
    EXPECT_EQ(array.GetCount(), 1);
    EXPECT_EQ(array[0], 1);
}

TEST(BaseArray, GrowsInTheStatedStepsAndSurvivesEachFailedAllocation) {
    std::vector<Int> capacities;
    EXPECT_EQ(FailEachAllocation([&]() -> Result<void> {
                  BaseArray<std::string> array;
                  capacities = {0};
                  for (int i = 0; i < 199; ++i) {
                      const Result<void> added = array.Append(std::to_string(i));
                      EXPECT_EQ(array.GetCount(), i + (added ? 1 : 0));
                      EXPECT_TRUE(array.IsEmpty() || array.GetLast() == std::to_string(array.GetCount() - 1));
                      TRY(added);
                      if (capacities.back() != array.GetCapacity())
                          capacities.push_back(array.GetCapacity());
                  }
                  return {};
              }),
              6);
    EXPECT_THAT(capacities, ElementsAre(0, 16, 32, 64, 112, 176, 272));
}

std::vector<int> KeysOf(const HashMap<int, int>& map) {
    std::vector<int> keys;
    for (const auto& entry : map)
        keys.push_back(entry.key);
    return keys;
}

static_assert(HashPointerBits(0) == 0 && HashPointerBits(0x7F12345678A0) == 0x781AB5292F4D);

TEST(HashMap, IteratesBucketsByFirstUseAndNewestFirstInside) {
    // By hand, in a table of 32: key 3 lies in bucket 3, keys 0 and 34 in bucket 0, keys 1 and 35 in bucket 1.
    HashMap<int, int> map;
    for (const int key : {3, 34, 0, 1, 35})
        ASSERT_TRUE(map.Set(key, -key));
    EXPECT_THAT(KeysOf(map), ElementsAre(3, 0, 34, 35, 1));
    ASSERT_TRUE(map.Erase(3));
    EXPECT_FALSE(map.Erase(3));
    ASSERT_TRUE(map.Set(3, 1));
    EXPECT_THAT(KeysOf(map), ElementsAre(3, 0, 34, 35, 1)) << "a bucket keeps its place when it was empty for a while";
}

TEST(HashMap, DoublesAtItsThresholdAndSurvivesEachFailedAllocation) {
    std::vector<std::pair<Int, Int>> steps;  // entries, buckets
    EXPECT_EQ(FailEachAllocation([&]() -> Result<void> {
                  HashMap<int, std::string> map, copy;
                  steps = {{0, 0}};
                  for (int i = 0; i < 90; ++i) {
                      const Result<void> set = map.Set(i, "value");
                      EXPECT_EQ(map.GetCount(), i + (set ? 1 : 0));
                      EXPECT_EQ(map.Contains(i), bool(set));
                      TRY(set);
                      if (steps.back().second != map.GetBucketCount())
                          steps.emplace_back(map.GetCount(), map.GetBucketCount());
                  }
                  TRY(copy.Set(77, "kept"));
                  Result<void> copied = copy.CopyFrom(map);
                  EXPECT_EQ(copy.GetCount(), copied ? 90 : 1);
                  return copied;
              }),
              187);  // 90 entries and four tables, an entry and its table, the copy
    EXPECT_THAT(steps, ElementsAre(std::pair(0, 0), std::pair(1, 32), std::pair(21, 64), std::pair(41, 128),
                                   std::pair(81, 256)));
}

TEST(HashMap, AgreesWithAnOrdinarySetUnderRandomUseAndCopies) {
    HashMap<int, int> map;
    std::set<int> expected;
    uint32_t random = 1;
    for (int step = 0; step < 20000; ++step) {
        random = random * 1664525 + 1013904223;
        const int key = int(random >> 20 & 1023);
        if (random & 0x10000) {
            ASSERT_TRUE(map.Set(key, step));
            expected.insert(key);
        } else {
            ASSERT_EQ(map.Erase(key), expected.erase(key) > 0);
        }
    }
    std::vector<int> keys = KeysOf(map);
    HashMap<int, int> copy;
    ASSERT_TRUE(copy.Set(5000, 1));
    ASSERT_TRUE(copy.CopyFrom(map));
    EXPECT_EQ(KeysOf(copy), keys) << "in the same order";
    ASSERT_TRUE(copy.Set(4000, 1));
    EXPECT_FALSE(map.Contains(4000));
    std::sort(keys.begin(), keys.end());
    EXPECT_EQ(keys, std::vector<int>(expected.begin(), expected.end()));
}

}  // namespace
}  // namespace orvik
