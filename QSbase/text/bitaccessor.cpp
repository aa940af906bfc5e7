#include <QSbase/text/bitaccessor.h>

#include <QSbase/allocationerror.h>
#include <QSbase/errors.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <functional>
#include <new>

using namespace qsbase::detail;

namespace {

constexpr unsigned int kNoBit = 0xFFFFFFFF;

constexpr std::size_t kWordSize = sizeof(std::uint64_t);

constexpr std::uint32_t BytesFor(std::uint32_t bits) { return bits / 8 + (bits % 8 != 0 ? 1 : 0); }

// Null when there is no memory, and for no bytes.
std::unique_ptr<unsigned char[]> TryAllocate(std::uint32_t bytes) noexcept {
  return std::unique_ptr<unsigned char[]>(bytes == 0 ? nullptr : new (std::nothrow) unsigned char[bytes]);
}

std::unique_ptr<unsigned char[]> Allocate(std::uint32_t bytes) {
  std::unique_ptr<unsigned char[]> memory = TryAllocate(bytes);
  if (!memory && bytes != 0) {
    ThrowAllocationError("BitAccessor", "QSbase/text/bitaccessor", __LINE__);
  }
  return memory;
}

void Copy(unsigned char* to, const unsigned char* from, std::uint32_t count) {
  if (count != 0) {
    std::memmove(to, from, count);
  }
}

// As the machine has it: enough to tell whether a bit differs.
std::uint64_t RawWord(const unsigned char* bytes) {
  std::uint64_t word;
  std::memcpy(&word, bytes, sizeof(word));
  return word;
}

// The end of the highest word before `end` in which a bit differs from `same`, which is all zeroes or all ones; below a
// word's size when there is none.
std::size_t SkipWords(const unsigned char* bytes, std::size_t end, std::uint64_t same) {
  constexpr std::size_t step = 4 * kWordSize;
  for (; end >= step; end -= step) {
    const unsigned char* const at = bytes + end - step;
    const std::uint64_t low = (RawWord(at) ^ same) | (RawWord(at + kWordSize) ^ same);
    const std::uint64_t high = (RawWord(at + 2 * kWordSize) ^ same) | (RawWord(at + 3 * kWordSize) ^ same);
    if ((low | high) != 0) {
      break;
    }
  }
  while (end >= kWordSize && RawWord(bytes + end - kWordSize) == same) {
    end -= kWordSize;
  }
  return end;
}

// The eight bytes before `end` as a number: the lowest bit of the last byte is bit 0. Where the array begins later,
// bits of `same` stand for the missing bytes.
std::uint64_t NumberBefore(const unsigned char* bytes, std::size_t end, std::uint64_t same) {
  std::uint64_t number = same;
  if (end >= kWordSize) {
    for (std::size_t i = end - kWordSize; i < end; ++i) {
      number = (number << 8U) | bytes[i];
    }
    return number;
  }
  for (std::size_t i = 0; i < end; ++i) {
    number = (number << 8U) | bytes[i];
  }
  return number;
}

}  // namespace

BitAccessor::BitAccessor(unsigned int bits)
    : _bytes(Allocate(BytesFor(bits))), _bitCount(bits), _byteCount(BytesFor(bits)) {
  Clear();
}

BitAccessor::BitAccessor(unsigned int bits, const unsigned char* data) noexcept
    : _bytes(TryAllocate(BytesFor(bits))), _bitCount(_bytes ? bits : 0), _byteCount(BytesFor(_bitCount)) {
  if (data == nullptr || !_bytes) {
    Clear();
    return;
  }
  Copy(_bytes.get(), data, _byteCount);
  if (bits % 8 != 0) {
    _bytes[0] = static_cast<unsigned char>(_bytes[0] & (0xFFU >> (8 - bits % 8)));
  }
}

BitAccessor::BitAccessor(const BitAccessor& other)
    : _bytes(Allocate(other._byteCount)), _bitCount(other._bitCount), _byteCount(other._byteCount) {
  Copy(_bytes.get(), other._bytes.get(), _byteCount);
}

BitAccessor& BitAccessor::operator=(const BitAccessor& other) {
  if (_byteCount != other._byteCount) {
    _bytes = Allocate(other._byteCount);
  }
  _bitCount = other._bitCount;
  _byteCount = other._byteCount;
  Copy(_bytes.get(), other._bytes.get(), _byteCount);
  return *this;
}

BitAccessor::~BitAccessor() = default;

void BitAccessor::Clear() {
  if (_bytes) {
    std::memset(_bytes.get(), 0, _byteCount);
  }
}

// An index equal to the bit count has no bit either: it would lie in the padding, or before the first byte.
unsigned char& BitAccessor::ByteOf(unsigned int index) const {
  if (index >= _bitCount) {
    throw ExInvalidRange("bitaccessor index out of range.");
  }
  return _bytes[_byteCount - 1 - index / 8];
}

void BitAccessor::Set(unsigned int index) {
  unsigned char& byte = ByteOf(index);
  byte = static_cast<unsigned char>(byte | (1U << (index % 8)));
}

void BitAccessor::Unset(unsigned int index) {
  unsigned char& byte = ByteOf(index);
  byte = static_cast<unsigned char>(byte & ~(1U << (index % 8)));
}

bool BitAccessor::IsSet(unsigned int index) const { return ((ByteOf(index) >> (index % 8)) & 1U) != 0; }

unsigned int BitAccessor::First(bool value) const { return Find(0, value); }

unsigned int BitAccessor::Next(unsigned int index, bool value) const {
  return _bitCount == 0 || index >= _bitCount - 1 ? kNoBit : Find(index + 1, value);
}

// From the byte of `from` downwards in memory; `end` is where the bytes end that are still to be searched.
unsigned int BitAccessor::Find(unsigned int from, bool value) const {
  const std::uint64_t same = value ? 0 : ~std::uint64_t{0};
  std::size_t end = _byteCount - from / 8;
  std::uint64_t found = (NumberBefore(_bytes.get(), end, same) ^ same) & (~std::uint64_t{0} << (from % 8));
  if (found == 0 && end > kWordSize) {
    end = SkipWords(_bytes.get(), end - kWordSize, same);
    found = NumberBefore(_bytes.get(), end, same) ^ same;
  }
  if (found == 0) {
    return kNoBit;
  }
  return static_cast<unsigned int>((_byteCount - end) * 8) + static_cast<unsigned int>(std::countr_zero(found));
}

BitAccessor::operator bool() const { return Find(0, true) != kNoBit; }

bool BitAccessor::operator==(const BitAccessor& other) const {
  return _bitCount == other._bitCount &&
         (_byteCount == 0 || std::memcmp(_bytes.get(), other._bytes.get(), _byteCount) == 0);
}

BitAccessor& BitAccessor::operator|=(const BitAccessor& other) {
  if (_bitCount != other._bitCount) {
    throw ExInvalidRange("operator | BitAccessors does not have the same length.");
  }
  unsigned char* const bytes = _bytes.get();
  std::transform(bytes, bytes + _byteCount, other._bytes.get(), bytes, std::bit_or<unsigned char>());
  return *this;
}

BitAccessor& BitAccessor::operator&=(const BitAccessor& other) {
  if (_bitCount != other._bitCount) {
    throw ExInvalidRange("operator & BitAccessors does not have the same length.");
  }
  unsigned char* const bytes = _bytes.get();
  std::transform(bytes, bytes + _byteCount, other._bytes.get(), bytes, std::bit_and<unsigned char>());
  return *this;
}
