#include <QSbase/text/stringcache.h>

#include <common/memorylimit.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <locale>
#include <new>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using qsbase::testing::kNoLimit;
using qsbase::testing::largestAllocation;

unsigned int IdOf(StringCache& cache, const std::string& text) {
  unsigned int id = 4711;
  EXPECT_TRUE(cache.GetID(text, id)) << text;
  return id;
}

std::string StringOf(const StringCache& cache, unsigned int id) {
  std::string text = "before";
  EXPECT_TRUE(cache.GetString(id, text)) << id;
  return text;
}

/// Makes entries null, as only a derived class can.
class ForgetfulCache : public StringCache {
 public:
  void Forget(unsigned int id) { _strings.at(id) = nullptr; }
};

/// No allocation of this thread succeeds while it lives.
class NoMemory {
 public:
  NoMemory() { largestAllocation = 0; }
  ~NoMemory() { largestAllocation = kNoLimit; }
};

TEST(StringCache, IdsCountFirstAppearances) {
  StringCache cache;
  EXPECT_EQ(0u, IdOf(cache, "first"));
  EXPECT_EQ(0u, IdOf(cache, "first"));
  EXPECT_EQ(1u, IdOf(cache, "second"));
  EXPECT_EQ(2u, IdOf(cache, ""));
  EXPECT_EQ(3u, IdOf(cache, "First"));
  EXPECT_EQ(1u, IdOf(cache, "second"));
  EXPECT_EQ(4u, IdOf(cache, "fifth"));
}

TEST(StringCache, IdsLeadBackToTheirStrings) {
  StringCache cache;
  const std::vector<std::string> texts = {
      "b", "", "a", std::string("z\0z", 3), std::string("z\0", 2), "\xFF\x80", std::string(100000, 'x')};
  for (const std::string& text : texts) {
    IdOf(cache, text);
  }
  for (unsigned int id = 0; id < texts.size(); ++id) {
    EXPECT_EQ(texts[id], StringOf(cache, id));
    EXPECT_EQ(id, IdOf(cache, texts[id]));
  }
}

TEST(StringCache, AnUnknownIdLeavesAnEmptyString) {
  StringCache cache;
  for (const unsigned int id : {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    std::string text = "before";
    EXPECT_FALSE(cache.GetString(id, text));
    EXPECT_EQ("", text);
  }
  IdOf(cache, "a");
  std::string text = "before";
  EXPECT_FALSE(cache.GetString(1, text)) << "the number of entries is no id";
  EXPECT_EQ("", text);
}

TEST(StringCache, ANullEntryIsNoString) {
  ForgetfulCache cache;
  IdOf(cache, "a");
  IdOf(cache, "b");
  cache.Forget(0);
  std::string text = "before";
  EXPECT_FALSE(cache.GetString(0, text));
  EXPECT_EQ("", text);
  EXPECT_EQ("b", StringOf(cache, 1));
  EXPECT_EQ(
      "Text-cache: size=2\n"
      "string --> id table:\n{\n\tID(a) = 0\n\tID(b) = 1\n}\n"
      "id --> string table:\n{\n\tString(0) = <NULL>\n\tString(1) = b\n}\n",
      cache.Description());
  const ForgetfulCache copy(cache);
  EXPECT_EQ(cache.Description(), copy.Description());
}

TEST(StringCache, DescriptionOfAnEmptyCache) {
  EXPECT_EQ("Text-cache: size=0\nstring --> id table:\n{\n}\nid --> string table:\n{\n}\n",
            StringCache().Description());
}

TEST(StringCache, DescriptionHasStringsInByteOrderAndThenIds) {
  StringCache cache;
  IdOf(cache, "b");
  IdOf(cache, "a");
  EXPECT_EQ(
      "Text-cache: size=2\n"
      "string --> id table:\n{\n\tID(a) = 1\n\tID(b) = 0\n}\n"
      "id --> string table:\n{\n\tString(0) = b\n\tString(1) = a\n}\n",
      cache.Description());
}

TEST(StringCache, BytesAreOrderedAsUnsigned) {
  StringCache cache;
  IdOf(cache, "\xE9");
  IdOf(cache, "z");
  IdOf(cache, std::string("\0", 1));
  const std::string zero(1, '\0');
  EXPECT_EQ("Text-cache: size=3\nstring --> id table:\n{\n\tID(" + zero +
                ") = 2\n\tID(z) = 1\n\tID(\xE9) = 0\n}\n"
                "id --> string table:\n{\n\tString(0) = \xE9\n\tString(1) = z\n\tString(2) = " +
                zero + "\n}\n",
            cache.Description());
}

/// Groups every digit.
class GroupedDigits : public std::numpunct<char> {
 protected:
  char do_thousands_sep() const override { return '\''; }
  std::string do_grouping() const override { return "\1"; }
};

TEST(StringCache, DescriptionTakesNoSeparatorsOfTheLocale) {
  StringCache cache;
  for (int i = 0; i < 1001; ++i) {
    IdOf(cache, std::string(static_cast<std::size_t>(i), 'x'));
  }
  const std::string before = cache.Description();
  const std::locale old = std::locale::global(std::locale(std::locale::classic(), new GroupedDigits));
  const std::string after = cache.Description();
  std::locale::global(old);
  EXPECT_EQ(before, after);
  EXPECT_EQ(0u, after.find("Text-cache: size=1001\n"));
  EXPECT_NE(std::string::npos, after.find("\tString(1000) = x"));
  EXPECT_NE(std::string::npos, after.find("x) = 1000\n"));
}

TEST(StringCache, ClearStartsAfresh) {
  StringCache cache;
  IdOf(cache, "a");
  IdOf(cache, "b");
  cache.Clear();
  std::string text = "before";
  EXPECT_FALSE(cache.GetString(0, text));
  EXPECT_EQ(StringCache().Description(), cache.Description());
  EXPECT_EQ(0u, IdOf(cache, "b"));
  cache.Clear();
  cache.Clear();
  EXPECT_EQ(StringCache().Description(), cache.Description());
}

TEST(StringCache, ACopyHasStringsOfItsOwn) {
  StringCache copy;
  {
    StringCache cache;
    IdOf(cache, "b");
    IdOf(cache, "a long string that has its memory for itself alone");
    const StringCache constructed(cache);
    copy = constructed;
    cache.Clear();
    IdOf(cache, "other");
  }
  EXPECT_EQ("b", StringOf(copy, 0));
  EXPECT_EQ("a long string that has its memory for itself alone", StringOf(copy, 1));
  EXPECT_EQ(2u, IdOf(copy, "c"));
}

TEST(StringCache, ACopyGrowsOnItsOwn) {
  StringCache cache;
  IdOf(cache, "a");
  StringCache copy(cache);
  EXPECT_EQ(1u, IdOf(copy, "only in the copy"));
  EXPECT_EQ(1u, IdOf(cache, "only in the first"));
  EXPECT_EQ("only in the first", StringOf(cache, 1));
  EXPECT_EQ("only in the copy", StringOf(copy, 1));
}

TEST(StringCache, AssignmentToItselfChangesNothing) {
  StringCache cache;
  IdOf(cache, "b");
  IdOf(cache, "a");
  const std::string before = cache.Description();
  const StringCache& same = cache;
  cache = same;
  EXPECT_EQ(before, cache.Description());
  EXPECT_EQ("a", StringOf(cache, 1));
}

TEST(StringCache, AFailedAssignmentLeavesTheCache) {
  StringCache source;
  for (unsigned int id = 0; id < 100; ++id) {
    IdOf(source, std::to_string(id));
  }
  StringCache cache;
  IdOf(cache, "b");
  IdOf(cache, "a");
  const std::string before = cache.Description();
  // No memory at all; then enough for the strings, not for the table of ids.
  for (const std::size_t limit : {std::size_t{0}, 99 * sizeof(void*)}) {
    bool threw = false;
    largestAllocation = limit;
    try {
      cache = source;
    } catch (const std::bad_alloc&) {
      threw = true;
    }
    largestAllocation = kNoLimit;
    EXPECT_TRUE(threw) << limit;
    EXPECT_EQ(before, cache.Description()) << limit;
    EXPECT_EQ("a", StringOf(cache, 1)) << limit;
  }
  cache = source;
  EXPECT_EQ(source.Description(), cache.Description());
}

TEST(StringCache, HasAVirtualDestructor) { EXPECT_TRUE(std::has_virtual_destructor_v<StringCache>); }

TEST(StringCache, AFailedInsertLeavesBothTables) {
  StringCache cache;
  IdOf(cache, "b");
  IdOf(cache, "a");
  const std::string before = cache.Description();
  const std::string text(1000, 'x');
  unsigned int id = 4711;
  bool good = true;
  {
    const NoMemory noMemory;
    good = cache.GetID(text, id);
  }
  EXPECT_FALSE(good);
  EXPECT_EQ(0u, id);
  EXPECT_EQ(before, cache.Description());
  EXPECT_EQ(2u, IdOf(cache, text));
  EXPECT_EQ(text, StringOf(cache, 2));
}

// Of an insert's allocations, the table of ids is the largest (and only now and then one), then the string, then its
// place in the other table: a low enough limit lets each be the first that fails.
TEST(StringCache, WhereverTheMemoryEndsBothTablesStay) {
  const std::string text(200, 'x');
  for (const unsigned int count : {1000u, 1024u}) {
    StringCache cache;
    for (unsigned int id = 0; id < count; ++id) {
      IdOf(cache, std::to_string(id));
    }
    const std::string before = cache.Description();
    for (std::size_t limit = 0; limit < text.size(); ++limit) {
      unsigned int id = 4711;
      largestAllocation = limit;
      const bool good = cache.GetID(text, id);
      largestAllocation = kNoLimit;
      ASSERT_FALSE(good) << limit;
      ASSERT_EQ(0u, id);
      ASSERT_EQ(before, cache.Description()) << limit;
    }
    EXPECT_EQ(count, IdOf(cache, text));
    EXPECT_EQ(text, StringOf(cache, count));
  }
}

TEST(StringCache, ALookUpCopiesNothing) {
  StringCache cache;
  const std::string known(1000, 'x');
  IdOf(cache, "a");
  IdOf(cache, known);
  unsigned int id = 4711;
  const NoMemory noMemory;
  EXPECT_TRUE(cache.GetID(known, id));
  EXPECT_EQ(1u, id);
}

/// The same by a list that is searched from its beginning.
TEST(StringCache, ManyStringsAgreeWithASearchedList) {
  std::mt19937 random(20261121);
  StringCache cache;
  std::vector<std::string> list;
  for (int i = 0; i < 20000; ++i) {
    std::string text(random() % 4, '\0');
    for (char& c : text) {
      c = "ab\xC4\0"[random() % 4];
    }
    auto place = std::find(list.begin(), list.end(), text);
    if (place == list.end()) {
      place = list.insert(list.end(), text);
    }
    ASSERT_EQ(static_cast<unsigned int>(place - list.begin()), IdOf(cache, text));
  }
  ASSERT_EQ(1u + 4u + 16u + 64u, list.size());
  std::string expected = "Text-cache: size=85\nstring --> id table:\n{\n";
  const std::set<std::string> sorted(list.begin(), list.end());
  for (const std::string& text : sorted) {
    expected +=
        "\tID(" + text + ") = " + std::to_string(std::find(list.begin(), list.end(), text) - list.begin()) + "\n";
  }
  expected += "}\nid --> string table:\n{\n";
  for (std::size_t id = 0; id < list.size(); ++id) {
    expected += "\tString(" + std::to_string(id) + ") = " + list[id] + "\n";
  }
  EXPECT_EQ(expected + "}\n", cache.Description());
}

}  // namespace
