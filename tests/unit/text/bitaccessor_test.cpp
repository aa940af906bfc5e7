#include <QSbase/errors.h>
#include <QSbase/text/bitaccessor.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

// Whether the next array that is asked for in the form that returns null is refused.
thread_local bool nextArrayFails = false;

}  // namespace

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  if (nextArrayFails) {
    nextArrayFails = false;
    return nullptr;
  }
  try {
    return ::operator new[](size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace {

constexpr unsigned int kNone = 0xFFFFFFFF;

using Bytes = std::vector<unsigned char>;

// The bits one by one, padding included, with the search written down plainly.
class SlowBits {
 public:
  explicit SlowBits(unsigned int count) : _count(count), _bits((std::size_t{count} + 7) / 8 * 8) {}

  std::vector<bool>& Bits() { return _bits; }
  unsigned int Count() const { return _count; }

  unsigned int First(bool value) const { return From(0, value); }

  unsigned int Next(unsigned int index, bool value) const {
    return std::size_t{index} + 1 < _count ? From(index + 1, value) : kNone;
  }

  // Bit i in byte (byte count - 1 - i/8), at position i mod 8.
  Bytes ToBytes() const {
    Bytes bytes(_bits.size() / 8);
    for (std::size_t i = 0; i < _bits.size(); ++i) {
      if (_bits[i]) {
        unsigned char& byte = bytes[bytes.size() - 1 - i / 8];
        byte = static_cast<unsigned char>(byte | (1U << (i % 8)));
      }
    }
    return bytes;
  }

 private:
  unsigned int From(std::size_t index, bool value) const {
    for (; index < _bits.size(); ++index) {
      if (_bits[index] == value) {
        return static_cast<unsigned int>(index);
      }
    }
    return kNone;
  }

  unsigned int _count;
  std::vector<bool> _bits;
};

BitAccessor Loaded(unsigned int count, const Bytes& bytes) { return BitAccessor(count, bytes.data()); }

BitAccessor AllSet(unsigned int count) { return Loaded(count, Bytes((std::size_t{count} + 7) / 8, 0xFF)); }

// Exact copies of the messages.
std::string RangeError(const auto& action) {
  try {
    action();
  } catch (const ExInvalidRange& error) {
    return error.GetErrorText();
  }
  return "nothing thrown";
}

const std::string kIndexError = "bitaccessor index out of range.";

void ExpectEqual(const BitAccessor& bits, const SlowBits& expected) {
  ASSERT_TRUE(bits == Loaded(expected.Count(), expected.ToBytes()));
}

}  // namespace

TEST(BitAccessor, StartsWithAllBitsZero) {
  for (const unsigned int count : {0U, 1U, 7U, 8U, 9U, 12U, 64U, 100U, 1000U}) {
    const BitAccessor bits(count);
    EXPECT_FALSE(bits);
    EXPECT_EQ(kNone, bits.First(true));
    for (unsigned int i = 0; i < count; ++i) {
      ASSERT_FALSE(bits.IsSet(i)) << i << " of " << count;
    }
  }
}

TEST(BitAccessor, BitZeroIsInTheLastByte) {
  BitAccessor bits(12);
  bits.Set(0);
  EXPECT_TRUE(bits == Loaded(12, {0x00, 0x01}));
  bits.Set(8);
  EXPECT_TRUE(bits == Loaded(12, {0x01, 0x01}));
  bits.Set(11);
  EXPECT_TRUE(bits == Loaded(12, {0x09, 0x01}));
  bits.Set(7);
  EXPECT_TRUE(bits == Loaded(12, {0x09, 0x81}));
}

TEST(BitAccessor, EveryBitHasItsPlace) {
  for (const unsigned int count : {8U, 12U, 24U, 63U, 64U, 65U, 200U}) {
    for (unsigned int i = 0; i < count; ++i) {
      SlowBits expected(count);
      expected.Bits()[i] = true;
      BitAccessor bits(count);
      bits.Set(i);
      ExpectEqual(bits, expected);
      const BitAccessor loaded = Loaded(count, expected.ToBytes());
      for (unsigned int j = 0; j < count; ++j) {
        ASSERT_EQ(i == j, loaded.IsSet(j)) << j << " of " << count;
      }
    }
  }
}

TEST(BitAccessor, TakesTheBytesWithoutThePadding) {
  EXPECT_TRUE(Loaded(4, {0xFF}) == Loaded(4, {0x0F}));
  EXPECT_EQ(4U, Loaded(4, {0xFF}).First(false));
  EXPECT_FALSE(Loaded(4, {0xF0}));
  EXPECT_FALSE(Loaded(4, {0xFF}) == Loaded(8, {0x0F}));
  EXPECT_TRUE(Loaded(9, {0xFF, 0x80}) == Loaded(9, {0x01, 0x80}));
  EXPECT_TRUE(Loaded(8, {0xFF}).IsSet(7));  // no padding there
}

TEST(BitAccessor, CopiesTheData) {
  Bytes bytes{0x80};
  const BitAccessor bits = Loaded(8, bytes);
  bytes[0] = 0;
  EXPECT_TRUE(bits.IsSet(7));
}

TEST(BitAccessor, TakesZeroesFromANullPointer) {
  for (const unsigned int count : {0U, 5U, 8U, 77U}) {
    EXPECT_TRUE(BitAccessor(count, nullptr) == BitAccessor(count));
  }
}

TEST(BitAccessor, SetsUnsetsAndClears) {
  BitAccessor bits(20);
  bits.Set(3);
  bits.Set(19);
  bits.Set(3);
  EXPECT_TRUE(bits.IsSet(3));
  EXPECT_TRUE(bits);
  bits.Unset(3);
  bits.Unset(4);
  EXPECT_FALSE(bits.IsSet(3));
  EXPECT_TRUE(bits == Loaded(20, {0x08, 0x00, 0x00}));
  bits.Clear();
  EXPECT_FALSE(bits);
  EXPECT_TRUE(bits == BitAccessor(20));
}

TEST(BitAccessor, AnIndexFromTheBitCountOnIsOutOfRange) {
  for (const unsigned int count : {0U, 1U, 8U, 12U}) {
    BitAccessor bits(count);
    for (const unsigned int index : {count, count + 1, count + 8, 0x80000000U, kNone}) {
      EXPECT_EQ(kIndexError, RangeError([&] { bits.Set(index); })) << index << " of " << count;
      EXPECT_EQ(kIndexError, RangeError([&] { bits.Unset(index); })) << index << " of " << count;
      EXPECT_EQ(kIndexError, RangeError([&] { (void)bits.IsSet(index); })) << index << " of " << count;
    }
    EXPECT_TRUE(bits == BitAccessor(count));
  }
}

TEST(BitAccessor, FirstRunsOverWholeBytes) {
  EXPECT_EQ(4U, AllSet(4).First(false));
  EXPECT_EQ(12U, AllSet(12).First(false));
  EXPECT_EQ(kNone, AllSet(8).First(false));
  EXPECT_EQ(kNone, AllSet(64).First(false));
  EXPECT_EQ(65U, AllSet(65).First(false));
  EXPECT_EQ(0U, AllSet(4).First(true));
  EXPECT_EQ(0U, BitAccessor(4).First(false));
}

TEST(BitAccessor, NextBoundsItsStartOnly) {
  EXPECT_EQ(12U, AllSet(12).Next(3, false));
  EXPECT_EQ(12U, AllSet(12).Next(10, false));
  EXPECT_EQ(kNone, AllSet(12).Next(11, false));
  EXPECT_EQ(kNone, AllSet(12).Next(12, false));
  EXPECT_EQ(kNone, AllSet(12).Next(kNone, false));
  EXPECT_EQ(kNone, AllSet(8).Next(0, false));
  EXPECT_EQ(1U, AllSet(12).Next(0, true));
  EXPECT_EQ(11U, AllSet(12).Next(10, true));
  EXPECT_EQ(kNone, AllSet(12).Next(11, true));
}

TEST(BitAccessor, AnEmptyArrayHasNothingToFind) {
  const BitAccessor none(0);
  EXPECT_FALSE(none);
  EXPECT_EQ(kNone, none.First(true));
  EXPECT_EQ(kNone, none.First(false));
  EXPECT_EQ(kNone, none.Next(0, true));
  EXPECT_EQ(kNone, none.Next(kNone, false));
  EXPECT_TRUE(none == BitAccessor(0));
  EXPECT_FALSE(none == BitAccessor(1));
}

// Every length across several words, sparse and dense, from every start.
TEST(BitAccessor, FindsWhatAPlainSearchFinds) {
  std::mt19937 random(37);
  for (unsigned int count = 0; count <= 330; ++count) {
    for (const double density : {0.0, 0.01, 0.5, 0.99, 1.0}) {
      SlowBits expected(count);
      std::bernoulli_distribution isSet(density);
      for (unsigned int i = 0; i < count; ++i) {
        expected.Bits()[i] = isSet(random);
      }
      const BitAccessor bits = Loaded(count, expected.ToBytes());
      for (const bool value : {false, true}) {
        ASSERT_EQ(expected.First(value), bits.First(value)) << count;
        for (unsigned int i = 0; i < count + 10; ++i) {
          ASSERT_EQ(expected.Next(i, value), bits.Next(i, value)) << i << " of " << count;
        }
      }
      ASSERT_EQ(expected.First(true) != kNone, static_cast<bool>(bits)) << count;
    }
  }
}

// One bit that differs, anywhere: no word, part of a word or step over words may be skipped wrongly.
TEST(BitAccessor, FindsTheOnlyOne) {
  for (const unsigned int count : {600U, 603U, 640U}) {
    for (unsigned int i = 0; i < count; ++i) {
      BitAccessor one(count);
      one.Set(i);
      BitAccessor allButOne = AllSet(count);
      allButOne.Unset(i);
      ASSERT_TRUE(one);
      for (unsigned int from = 0; from < i; from += 37) {
        ASSERT_EQ(i, one.Next(from, true));
        ASSERT_EQ(i, allButOne.Next(from, false));
      }
      ASSERT_EQ(i, one.First(true));
      ASSERT_EQ(i, allButOne.First(false));
      ASSERT_EQ(kNone, one.Next(i, true));
    }
  }
}

TEST(BitAccessor, SetAndUnsetAsOneByOne) {
  std::mt19937 random(7);
  SlowBits expected(1001);
  BitAccessor bits(1001);
  for (int i = 0; i < 5000; ++i) {
    const auto index = static_cast<unsigned int>(random() % 1001);
    const bool value = random() % 2 == 0;
    value ? bits.Set(index) : bits.Unset(index);
    expected.Bits()[index] = value;
    ASSERT_EQ(value, bits.IsSet(index));
  }
  ExpectEqual(bits, expected);
}

TEST(BitAccessor, CombinesBitByBit) {
  std::mt19937 random(11);
  for (unsigned int count = 0; count <= 600; ++count) {
    SlowBits left(count);
    SlowBits right(count);
    SlowBits either(count);
    SlowBits both(count);
    for (unsigned int i = 0; i < count; ++i) {
      const bool l = random() % 2 == 0;
      const bool r = random() % 2 == 0;
      left.Bits()[i] = l;
      right.Bits()[i] = r;
      either.Bits()[i] = l || r;
      both.Bits()[i] = l && r;
    }
    const BitAccessor original = Loaded(count, left.ToBytes());
    const BitAccessor other = Loaded(count, right.ToBytes());
    BitAccessor bits = original;
    EXPECT_EQ(&bits, &(bits |= other));
    ExpectEqual(bits, either);
    bits = original;
    EXPECT_EQ(&bits, &(bits &= other));
    ExpectEqual(bits, both);
    ExpectEqual(other, right);
    bits = original;
    const BitAccessor& same = bits;
    bits |= same;
    bits &= same;
    ExpectEqual(bits, left);
  }
}

TEST(BitAccessor, CombinesEqualLengthsOnly) {
  BitAccessor eight = AllSet(8);
  const BitAccessor nine(9);
  const BitAccessor twelve(12);
  EXPECT_EQ("operator | BitAccessors does not have the same length.", RangeError([&] { eight |= nine; }));
  EXPECT_EQ("operator & BitAccessors does not have the same length.", RangeError([&] { eight &= nine; }));
  EXPECT_TRUE(eight == AllSet(8));
  // As many bytes do not suffice.
  BitAccessor other = nine;
  EXPECT_EQ("operator | BitAccessors does not have the same length.", RangeError([&] { other |= twelve; }));
  EXPECT_EQ("operator & BitAccessors does not have the same length.", RangeError([&] { other &= twelve; }));
}

TEST(BitAccessor, EqualNeedsCountAndBits) {
  EXPECT_TRUE(Loaded(12, {0x01, 0x02}) == Loaded(12, {0x01, 0x02}));
  EXPECT_FALSE(Loaded(12, {0x01, 0x02}) == Loaded(12, {0x00, 0x02}));
  EXPECT_FALSE(Loaded(12, {0x01, 0x02}) == Loaded(12, {0x01, 0x03}));
  EXPECT_FALSE(Loaded(12, {0x01, 0x02}) == Loaded(13, {0x01, 0x02}));
}

TEST(BitAccessor, UnequalIsTheOpposite) {
  EXPECT_FALSE(Loaded(12, {0x01, 0x02}) != Loaded(12, {0x01, 0x02}));
  EXPECT_TRUE(Loaded(12, {0x01, 0x02}) != Loaded(12, {0x01, 0x03}));
  EXPECT_TRUE(Loaded(12, {0x01, 0x02}) != Loaded(13, {0x01, 0x02}));
}

TEST(BitAccessor, CopiesAreIndependent) {
  BitAccessor bits = Loaded(12, {0x08, 0x01});
  BitAccessor copy(bits);
  EXPECT_TRUE(copy == bits);
  bits.Unset(0);
  copy.Set(1);
  EXPECT_TRUE(bits == Loaded(12, {0x08, 0x00}));
  EXPECT_TRUE(copy == Loaded(12, {0x08, 0x03}));
  EXPECT_FALSE(BitAccessor(BitAccessor(0)));
}

TEST(BitAccessor, AssignmentTakesCountAndBits) {
  const BitAccessor small = Loaded(12, {0x08, 0x01});
  const BitAccessor large = AllSet(100);
  BitAccessor bits(13);  // as many bytes as `small`
  EXPECT_EQ(&bits, &(bits = small));
  EXPECT_TRUE(bits == small);
  bits = large;
  EXPECT_TRUE(bits == large);
  bits.Unset(99);
  EXPECT_TRUE(large.IsSet(99));
  bits = small;
  EXPECT_TRUE(bits == small);
  EXPECT_EQ(kIndexError, RangeError([&] { bits.Set(12); }));
  bits = BitAccessor(0);
  EXPECT_TRUE(bits == BitAccessor(0));
  bits = small;
  EXPECT_TRUE(bits == small);
}

TEST(BitAccessor, AssignmentToItselfChangesNothing) {
  BitAccessor bits = Loaded(12, {0x08, 0x01});
  const BitAccessor& same = bits;
  bits = same;
  EXPECT_TRUE(bits == Loaded(12, {0x08, 0x01}));
  BitAccessor none(0);
  const BitAccessor& sameNone = none;
  none = sameNone;
  EXPECT_TRUE(none == BitAccessor(0));
}

TEST(BitAccessor, IsMadeToBeDerivedFrom) { EXPECT_TRUE(std::has_virtual_destructor_v<BitAccessor>); }

TEST(BitAccessor, WithoutMemoryForTheDataItIsEmpty) {
  const Bytes data{0xFF, 0xFF};
  nextArrayFails = true;
  BitAccessor bits(12, data.data());
  ASSERT_FALSE(nextArrayFails);
  EXPECT_FALSE(bits);
  EXPECT_TRUE(bits == BitAccessor(0));
  EXPECT_EQ(kNone, bits.First(true));
  EXPECT_EQ(kNone, bits.First(false));
  EXPECT_EQ(kNone, bits.Next(3, false));
  EXPECT_EQ(kIndexError, RangeError([&] { bits.Set(0); }));
  bits.Clear();
  BitAccessor copy(bits);
  copy |= bits;
  copy &= bits;
  copy = AllSet(12);
  EXPECT_TRUE(copy.IsSet(11));
}

TEST(BitAccessor, WithoutMemoryTheOthersThrow) {
  nextArrayFails = true;
  EXPECT_THROW(BitAccessor(12), ExMemoryAllocation);
  const BitAccessor bits = AllSet(12);
  nextArrayFails = true;
  EXPECT_THROW(BitAccessor{bits}, ExMemoryAllocation);
  BitAccessor target = AllSet(100);
  nextArrayFails = true;
  EXPECT_THROW(target = bits, ExMemoryAllocation);
  ASSERT_FALSE(nextArrayFails);
  EXPECT_TRUE(target == AllSet(100));
}

// 512 MiB: nothing wraps at 2^32.
TEST(BitAccessor, NearTheLargestCount) {
  BitAccessor bits(kNone);
  EXPECT_FALSE(bits);
  bits.Set(kNone - 1);
  EXPECT_TRUE(bits.IsSet(kNone - 1));
  EXPECT_FALSE(bits.IsSet(kNone - 2));
  EXPECT_EQ(kIndexError, RangeError([&] { bits.Set(kNone); }));
  EXPECT_EQ(kNone - 1, bits.First(true));
  EXPECT_EQ(kNone - 1, bits.Next(kNone - 100, true));
  EXPECT_EQ(kNone, bits.Next(kNone - 1, true));
  EXPECT_EQ(kNone, bits.Next(kNone, false));
}
