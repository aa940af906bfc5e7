#include <QSbase/text/bitaccessor.h>

#include <QSbase/allocationerror.h>
#include <QSbase/errors.h>

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

// Sixteen bytes for the vector instructions that every target has.
using Block [[gnu::vector_size(16)]] = std::uint64_t;

template <typename Value>
Value Load(const unsigned char* bytes) {
  Value value;
  std::memcpy(&value, bytes, sizeof(value));
  return value;
}

// The end of the highest word before `end` in which a bit differs from `same`, which is all zeroes or all ones; below a
// word's size when there is none.
std::size_t SkipWords(const unsigned char* bytes, std::size_t end, std::uint64_t same) {
  constexpr std::size_t step = 4 * sizeof(Block);
  const Block sames = {same, same};
  for (; end >= step; end -= step) {
    const unsigned char* const at = bytes + end - step;
    const Block low = (Load<Block>(at) ^ sames) | (Load<Block>(at + 16) ^ sames);
    const Block high = (Load<Block>(at + 32) ^ sames) | (Load<Block>(at + 48) ^ sames);
    const Block all = low | high;
    if ((all[0] | all[1]) != 0) {
      break;
    }
  }
  while (end >= kWordSize && Load<std::uint64_t>(bytes + end - kWordSize) == same) {
    end -= kWordSize;
  }
  return end;
}

// The eight bytes before `end` as a number: the lowest bit of the last byte is bit 0. Where the array begins later,
// bits of `same` stand for the missing bytes.
std::uint64_t NumberBefore(const unsigned char* bytes, std::size_t end, std::uint64_t same) {
  static_assert(std::endian::native == std::endian::little);
  if (end >= kWordSize) {
    return __builtin_bswap64(Load<std::uint64_t>(bytes + end - kWordSize));
  }
  std::uint64_t number = same;
  for (std::size_t i = 0; i < end; ++i) {
    number = (number << 8U) | bytes[i];
  }
  return number;
}

// Both may be the same array.
template <typename Operation>
void Combine(unsigned char* to, const unsigned char* from, std::size_t count, Operation operation) {
  constexpr std::size_t step = 2 * sizeof(Block);
  for (; count >= step; to += step, from += step, count -= step) {
    for (std::size_t i = 0; i < step; i += sizeof(Block)) {
      const Block combined = operation(Load<Block>(to + i), Load<Block>(from + i));
      std::memcpy(to + i, &combined, sizeof(combined));
    }
  }
  for (std::size_t i = 0; i < count; ++i) {
    to[i] = static_cast<unsigned char>(operation(to[i], from[i]));
  }
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

void BitAccessor::ThrowOutOfRange() { throw ExInvalidRange("bitaccessor index out of range."); }

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
  Combine(_bytes.get(), other._bytes.get(), _byteCount, std::bit_or<>());
  return *this;
}

BitAccessor& BitAccessor::operator&=(const BitAccessor& other) {
  if (_bitCount != other._bitCount) {
    throw ExInvalidRange("operator & BitAccessors does not have the same length.");
  }
  Combine(_bytes.get(), other._bytes.get(), _byteCount, std::bit_and<>());
  return *this;
}
