/// \file
/// MD5 as in RFC 1321 (internal), and the keyed variant that hashes two more zero bytes. No function keeps anything
/// between calls: different states may be used from different threads.
#ifndef QSBASE_CODEC_MD5_H
#define QSBASE_CODEC_MD5_H

#include <cstddef>
#include <cstdint>

namespace qsbase::detail {

/// A digest in the making. The layout is fixed: `QsMD5` holds 88 bytes for it.
struct Md5State {
  std::uint64_t bitCount;
  std::uint32_t words[4];
  unsigned char block[64];
};
static_assert(sizeof(Md5State) == 88 && alignof(Md5State) <= 8);

void md5_init(Md5State* state);
void md5_append(Md5State* state, const unsigned char* data, std::size_t length);
void md5_finish(Md5State* state, unsigned char digest[16]);

/// The kernel: takes `blocks` times 64 bytes of data, at any alignment, into the four chaining words.
void Md5Blocks(std::uint32_t words[4], const unsigned char* data, std::size_t blocks);

/// Fills with zeros, also where the compiler sees that nobody reads the memory again.
void WipeMemory(void* memory, std::size_t size);

/// MD5 of the outer pad, the inner hash and one zero byte; the inner hash is that of the inner pad, the text and its
/// terminating zero byte. Without a key, or with one that has not 64 bytes, the default HMAC key is taken.
void KeyedMd5(const char* text, const unsigned char* key, std::size_t keyLength, unsigned char digest[16]);

}  // namespace qsbase::detail

#endif
