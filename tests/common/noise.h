/// \file
/// Content for tests.
#ifndef QSBASE_TESTS_COMMON_NOISE_H
#define QSBASE_TESTS_COMMON_NOISE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace qsbase::testing {

/// Bytes of every value, the same in each run.
inline std::string Noise(std::size_t size) {
  std::string bytes(size, '\0');
  std::uint32_t state = 12345;
  for (char& byte : bytes) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

}  // namespace qsbase::testing

#endif
