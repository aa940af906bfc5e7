/// \file
/// The inputs that the benchmarks share.
#ifndef QSBASE_BENCHMARKS_INPUTS_H
#define QSBASE_BENCHMARKS_INPUTS_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace qsbase::benchmarks {

/// Random bytes, the same in every run.
inline std::string RandomBytes(std::size_t size) {
  std::mt19937_64 random(20261121);
  std::string bytes(size, '\0');
  for (char& byte : bytes) {
    byte = static_cast<char>(random());
  }
  return bytes;
}

/// Text as mail carries it: words, line ends (CR LF), a letter beyond ASCII now and then.
inline std::string MailText(std::size_t size) {
  static const char* const words[] = {"the",   "harbour", "light", "of",  "evening",  "\303\274ber", "a=b",
                                      "ships", "and",     "tides", "was", "(quiet),", "don't",       "2026-11-21."};
  std::mt19937_64 random(20261121);
  std::string text;
  std::size_t column = 0;
  while (text.size() < size) {
    const std::string word = words[random() % (sizeof words / sizeof words[0])];
    text += word;
    column += word.size() + 1;
    if (column > 64) {
      text += "\r\n";
      column = 0;
    } else {
      text += ' ';
    }
  }
  text.resize(size);
  return text;
}

constexpr std::size_t kInputSize = std::size_t{16} << 20;

}  // namespace qsbase::benchmarks

#endif
