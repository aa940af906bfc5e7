/// \file
/// A fixed-size array of bits over a fixed byte layout.
///
/// Thread safety: an array may be read by several threads while none changes it.
#ifndef QSBASE_TEXT_BITACCESSOR_H
#define QSBASE_TEXT_BITACCESSOR_H

#include <cstdint>
#include <memory>

#include <QSbase/export.h>

/// Bits that can be set, searched and combined. Bit 0 is the lowest bit of the *last* byte, bit 8 the lowest bit of the
/// byte before it, and so on: the bytes read as one big-endian number. When the bit count is no multiple of 8, the high
/// bits of the first byte are padding, which stays 0. Memory that cannot be had is an ExMemoryAllocation, save where
/// another thing is said.
///
/// \code
/// BitAccessor parts(12);
/// parts.Set(0);
/// parts.Set(8);
/// for (unsigned int i = parts.First(true); i != 0xFFFFFFFF; i = parts.Next(i, true)) {
///   Load(i);  // 0, 8
/// }
/// \endcode
class QSBASE_API BitAccessor {
 public:
  /// `bits` bits, all of them 0. None is allowed, and as many as 2^32-1.
  explicit BitAccessor(unsigned int bits);
  /// Takes the bits from ceil(bits / 8) bytes at `data` in the layout above, the padding left out; all 0 when `data` is
  /// null. `data` is copied. Does not throw: without memory for the bytes it is an array of 0 bits.
  BitAccessor(unsigned int bits, const unsigned char* data) noexcept;
  /// A copy of its own.
  BitAccessor(const BitAccessor& other);
  /// Takes over the bit count and the bits. Without memory this array stays as it was.
  BitAccessor& operator=(const BitAccessor& other);
  virtual ~BitAccessor();

  /// Makes all bits 0.
  void Clear();
  /// Makes a bit 1. \throws ExInvalidRange "bitaccessor index out of range." when `index` is not below the bit count.
  void Set(unsigned int index) {
    unsigned char& byte = ByteOf(index);
    byte = static_cast<unsigned char>(byte | (1U << (index % 8)));
  }
  /// Makes a bit 0. Throws as Set() does.
  void Unset(unsigned int index) {
    unsigned char& byte = ByteOf(index);
    byte = static_cast<unsigned char>(byte & ~(1U << (index % 8)));
  }
  /// Whether a bit is 1. Throws as Set() does.
  bool IsSet(unsigned int index) const { return ((ByteOf(index) >> (index % 8)) & 1U) != 0; }

  /// The lowest index whose bit equals `value`; 0xFFFFFFFF when there is none. Whole bytes are searched, so that
  /// `false` may find the padding: with all of 12 bits set it gives 12, with all of 8 set 0xFFFFFFFF. Kept: callers
  /// rely on it.
  unsigned int First(bool value) const { return Find(0, value); }
  /// The lowest index above `index` whose bit equals `value`; 0xFFFFFFFF when index + 1 is not below the bit count or
  /// nothing is found. Searches whole bytes as First() does.
  unsigned int Next(unsigned int index, bool value) const {
    if (index >= _bitCount || index + 1 >= _bitCount) {
      return 0xFFFFFFFF;
    }
    return IsSet(index + 1) == value ? index + 1 : Find(index + 1, value);
  }

  /// True when any bit is 1.
  operator bool() const;  // NOLINT(google-explicit-constructor): callers test and store it as it is
  /// True when the bit counts and all bits are equal.
  bool operator==(const BitAccessor& other) const;
  /// Said outright: before C++20, "!=" would compare the two as bool.
  bool operator!=(const BitAccessor& other) const { return !(*this == other); }
  /// Combines each bit with its partner by "or". \throws ExInvalidRange
  /// "operator | BitAccessors does not have the same length." when the bit counts differ; nothing is changed then.
  BitAccessor& operator|=(const BitAccessor& other);
  /// Combines each bit with its partner by "and". \throws ExInvalidRange
  /// "operator & BitAccessors does not have the same length." when the bit counts differ; nothing is changed then.
  BitAccessor& operator&=(const BitAccessor& other);

 private:
  // An index equal to the bit count has no bit either: it would lie in the padding, or before the first byte.
  unsigned char& ByteOf(unsigned int index) const {
    if (index >= _bitCount) {
      ThrowOutOfRange();
    }
    return _bytes[_byteCount - 1 - index / 8];
  }

  [[noreturn]] static void ThrowOutOfRange();
  unsigned int Find(unsigned int from, bool value) const;

  std::unique_ptr<unsigned char[]> _bytes;  // null without bytes
  std::uint32_t _bitCount;
  std::uint32_t _byteCount;
};

#endif
