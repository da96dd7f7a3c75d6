#include "qn_core/core_array.h"

#include <gmock/gmock.h>

#include "qn_core/core_string.h"

namespace {

using testing::ElementsAre;

// Counts the living, so that a double or a missing destruction shows.
struct Counted {
    static inline int alive = 0;
    int value = 7;
    Counted() { ++alive; }
    explicit Counted(int v) : value(v) { ++alive; }
    Counted(const Counted& other) : value(other.value) { ++alive; }
    Counted(Counted&& other) noexcept : value(other.value) {
        other.value = -1;
        ++alive;
    }
    Counted& operator=(const Counted&) = default;
    ~Counted() { --alive; }
};

TEST(CoreArray, DestroysExactlyWhatItMade) {
    {
        CoreArray<Counted> a;
        for (int i = 0; i < 20; ++i) a.add(Counted(i));
        a.resize(5);
        EXPECT_EQ(Counted::alive, 5);
        a.resize(9);
        EXPECT_EQ(Counted::alive, 9);
        EXPECT_EQ(a[4].value, 4);
        EXPECT_EQ(a[8].value, 7);
        CoreArray<Counted> b(a);
        EXPECT_EQ(Counted::alive, 18);
        b = std::move(a);
        EXPECT_EQ(Counted::alive, 9);
        a = b;
        a = *&a;
        EXPECT_EQ(Counted::alive, 18);
    }
    EXPECT_EQ(Counted::alive, 0);
}

TEST(CoreArray, AddOfOwnElementSurvivesGrowth) {
    CoreArray<CoreString> a;
    a.add("a text that is too long for any small buffer, number one");
    for (int i = 0; i < 40; ++i) a.add(a[0]);
    for (const CoreString& s : a) EXPECT_EQ(s, a[0]);
    EXPECT_EQ(a[40].to_std().substr(0, 6), "a text");
}

TEST(CoreArray, AssignTakesItsOwnCountAndElement) {
    CoreArray<unsigned int> numbers(3, 5u);
    numbers[1] = 9;
    numbers.assign(numbers.get_count(), numbers[1]);
    EXPECT_THAT(std::vector<unsigned int>(numbers.begin(), numbers.end()), ElementsAre(9, 9, 9));

    CoreArray<CoreString> names(3, CoreString("x"));
    names[1] = CoreString("y");
    names.assign(names.get_count(), names[1]);
    ASSERT_EQ(names.get_count(), 3u);
    for (const CoreString& s : names) EXPECT_EQ(s, CoreString("y"));
}

TEST(CoreArray, CopiesFromPartOfItself) {
    CoreArray<unsigned int> a;
    for (unsigned int i = 0; i < 10; ++i) a.add(i);
    a = CoreBasicArray<unsigned int>(3, a.get_data() + 4);
    EXPECT_THAT(std::vector<unsigned int>(a.begin(), a.end()), ElementsAre(4, 5, 6));
    const unsigned int* storage = a.get_data();
    a = static_cast<const CoreBasicArray<unsigned int>&>(a);
    EXPECT_EQ(a.get_data(), storage);
}

TEST(CoreArray, StorageOfEverySizeIsAlignedWholeAndFreed) {
    constexpr unsigned int large_page = 1u << 21;
    for (unsigned int n = 1; n < 40; ++n)
        EXPECT_EQ(reinterpret_cast<size_t>(CoreArray<unsigned char>(n).get_data()) % 64, 0u);
    for (const unsigned int n : {large_page / 4 * 3 - 1, large_page / 4 * 3, large_page, large_page + 1,
                                 3 * large_page - 1, 3 * large_page + large_page / 2}) {
        CoreArray<unsigned char> array(n, static_cast<unsigned char>(7));
        EXPECT_EQ(reinterpret_cast<size_t>(array.get_data()) % 64, 0u);
        array.reserve(n + large_page);
        EXPECT_EQ(std::count(array.begin(), array.end(), 7), n);
    }
}

}  // namespace
