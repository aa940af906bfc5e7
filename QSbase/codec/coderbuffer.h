/// \file
/// Shared by the coders (internal): status numbers, flag bits, size checks, and the output buffer that knows how it was
/// allocated. Everything here may be used from any thread; one `CoderBuffer` belongs to one call.
#ifndef QSBASE_CODEC_CODERBUFFER_H
#define QSBASE_CODEC_CODERBUFFER_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string>

#include <QSbase/codec/encodedecode.h>

namespace qsbase::detail {

/// The status numbers of the coders.
inline constexpr int kCoderOk = 0;
inline constexpr int kCoderNothingSelected = -2;
inline constexpr int kCoderNoMemory = -3;
inline constexpr int kCoderNullPointer = -4;
inline constexpr int kCoderNoInputFile = -5;
inline constexpr int kCoderBadLine = -6;
inline constexpr int kCoderNoYEncBlock = -7;
inline constexpr int kCoderSizeMismatch = -899;

/// The bits of the flag word.
inline constexpr int kCoderBase64 = 0x1;
inline constexpr int kCoderQP = 0x2;
inline constexpr int kCoderUU = 0x4;
inline constexpr int kCoderXX = 0x8;
inline constexpr int kCoderDetectUU = 0x10;
inline constexpr int kCoderAnyUU = kCoderUU | kCoderXX | kCoderDetectUU;
inline constexpr int kCoderQPEncodeBlanks = 0x20;
inline constexpr int kCoderQPEncodeQuestion = 0x40;
inline constexpr int kCoderQPCountBlanksEncoded = 0x80;
inline constexpr int kCoderUUSkipHeader = 0x100;
inline constexpr int kCoderQPHardBreaks = 0x200;
inline constexpr int kCoderQPLiteralSpecials = 0x400;
inline constexpr int kCoderYEnc = 0x800;
inline constexpr int kCoderYEncWriteHeader = 0x1000;
inline constexpr int kCoderYEncFindBlock = 0x2000;
inline constexpr int kCoderYEncPlainTabDot = 0x4000;
inline constexpr int kCoderBinHex = 0x10000;
inline constexpr int kCoderBinHexHeaderOnly = 0x20000;
inline constexpr int kCoderArrayBuffers = 0x10000000;

/// The longest result a coder can report: lengths of the interface have 32 bits.
inline constexpr std::uint64_t kCoderMaxSize = std::numeric_limits<std::uint32_t>::max();

/// Stores a size computed in 64 bits. Returns 0, or -3 (and stores 0) when 32 bits do not hold it.
inline int StoreCoderSize(std::uint64_t size, unsigned int& out) {
  out = size > kCoderMaxSize ? 0 : static_cast<unsigned int>(size);
  return size > kCoderMaxSize ? kCoderNoMemory : kCoderOk;
}

/// What every buffer operation does first: empties the output, answers an empty input and null pointers.
/// Returns true when the call is over; `status` is its result then.
inline bool IsCoderCallOver(const void* input, unsigned int length, char** output, unsigned int& outputLength,
                            int& status) {
  if (output != nullptr) {
    *output = nullptr;
  }
  outputLength = 0;
  const bool isNull = length != 0 && (input == nullptr || output == nullptr);
  status = isNull ? kCoderNullPointer : kCoderOk;
  return length == 0 || isNull;
}

/// The same for the operations that work in place.
inline bool IsInlineCallOver(const char* buffer, unsigned int length, unsigned int& outputLength, int& status) {
  outputLength = 0;
  status = length != 0 && buffer == nullptr ? kCoderNullPointer : kCoderOk;
  return length == 0 || buffer == nullptr;
}

/// A coder's output buffer: from array new under 0x10000000, otherwise from the C heap. Released by the destructor
/// unless handed to the caller. Behind the requested size there are always `kSlack` more bytes that a kernel may
/// scratch: a vector of the widest level.
class CoderBuffer {
 public:
  static constexpr std::size_t kSlack = 64;

  explicit CoderBuffer(int flags) : _flags(flags) {}
  ~CoderBuffer() { CEncodeDecode::FreeBuffer(_data, _flags); }
  CoderBuffer(const CoderBuffer&) = delete;
  CoderBuffer& operator=(const CoderBuffer&) = delete;

  /// Allocates `size` bytes, not initialised, in place of what was there. Returns 0 or -3.
  int Allocate(std::uint64_t size) {
    CEncodeDecode::FreeBuffer(_data, _flags);
    _size = 0;
    if (size > kLimit) {
      return kCoderNoMemory;
    }
    _data = New(static_cast<std::size_t>(size) + kSlack);
    if (_data == nullptr) {
      return kCoderNoMemory;
    }
    _size = size;
    return kCoderOk;
  }

  /// Makes room for `size` bytes in all and keeps the first `used` ones. Returns 0, or -3 with the buffer unchanged.
  int Grow(std::uint64_t size, std::uint64_t used) {
    if (size <= _size) {
      return kCoderOk;
    }
    return size > kLimit || !Resize(static_cast<std::size_t>(size), static_cast<std::size_t>(used)) ? kCoderNoMemory
                                                                                                    : kCoderOk;
  }

  char* Data() { return _data; }
  std::uint64_t Size() const { return _size; }

  /// Hands the buffer with its first `length` bytes to the caller, a zero byte behind them (a courtesy: the length
  /// counts). Returns 0, or -3 (the caller gets nothing) when the length does not fit 32 bits.
  int HandOver(std::uint64_t length, char** output, unsigned int& outputLength) {
    if (length > kCoderMaxSize) {
      return kCoderNoMemory;
    }
    if (_size - length > kWaste && !UsesArrays()) {
      Resize(static_cast<std::size_t>(length), static_cast<std::size_t>(length));
    }
    _data[length] = '\0';
    *output = _data;
    outputLength = static_cast<unsigned int>(length);
    _data = nullptr;
    _size = 0;
    return kCoderOk;
  }

 private:
  static constexpr std::uint64_t kLimit = std::numeric_limits<std::size_t>::max() / 2 - kSlack;
  static constexpr std::uint64_t kWaste = 0x10000;

  bool UsesArrays() const { return (_flags & kCoderArrayBuffers) != 0; }

  char* New(std::size_t size) const {
    return UsesArrays() ? new (std::nothrow) char[size] : static_cast<char*>(std::malloc(size));
  }

  bool Resize(std::size_t size, std::size_t used) {
    char* data = nullptr;
    if (UsesArrays()) {
      data = New(size + kSlack);
      if (data != nullptr && used != 0) {
        std::memcpy(data, _data, used);
      }
    } else {
      data = static_cast<char*>(std::realloc(_data, size + kSlack));
    }
    if (data == nullptr) {
      return false;
    }
    if (UsesArrays()) {
      delete[] _data;
    }
    _data = data;
    _size = size;
    return true;
  }

  int _flags;
  char* _data = nullptr;
  std::uint64_t _size = 0;
};

/// Releases a buffer that a coder returned, at the end of the scope.
class CoderResult {
 public:
  explicit CoderResult(int flags) : _flags(flags) {}
  ~CoderResult() { CEncodeDecode::FreeBuffer(data, _flags); }
  CoderResult(const CoderResult&) = delete;
  CoderResult& operator=(const CoderResult&) = delete;

  char* data = nullptr;
  unsigned int length = 0;

 private:
  int _flags;
};

/// The string form of a buffer operation: runs `operation(input, length, &buffer, bufferLength)`, appends what it gave
/// to `output` (which may be the input too) and releases the buffer, also when appending throws.
template <class Operation>
int CodeString(const std::string& input, std::string& output, int flags, Operation operation) {
  if (input.size() > kCoderMaxSize) {
    return kCoderNoMemory;
  }
  CoderResult result(flags);
  const int status = operation(input.data(), static_cast<unsigned int>(input.size()), &result.data, result.length);
  if (result.data != nullptr) {
    output.append(result.data, result.length);
  }
  return status;
}

/// The same for a member of the coder that takes the flag word last.
inline int CodeString(CEncodeDecode& coder,
                      int (CEncodeDecode::*operation)(const char*, unsigned int, char**, unsigned int&, int),
                      const std::string& input, std::string& output, int flags) {
  return CodeString(input, output, flags, [&](const char* data, unsigned int size, char** out, unsigned int& outSize) {
    return (coder.*operation)(data, size, out, outSize, flags);
  });
}

}  // namespace qsbase::detail

#endif
