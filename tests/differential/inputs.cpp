#include "inputs.h"

#include <common/sanitized.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace qsbase::differential {

namespace {

#ifdef QSBASE_TESTS_SANITIZED
constexpr std::size_t kShare = 9;  // has no divisor in common with 64 and 256, the lengths of the inner loops
#else
constexpr std::size_t kShare = 1;
#endif

double Scale() {
  const char* text = std::getenv("QSBASE_DIFFERENTIAL_SCALE");
  return text == nullptr ? 1.0 : std::strtod(text, nullptr);
}

}  // namespace

std::size_t Random::Size() {
  if (OneIn(8)) {
    return 64 * Below(8) + Below(5);
  }
  return OneIn(16) ? Below(3000) : Below(301);
}

std::string Random::Bytes(std::size_t size) {
  std::string text(size, '\0');
  for (char& c : text) {
    c = static_cast<char>(_engine());
  }
  return text;
}

std::string Random::From(std::string_view pool, std::size_t size) {
  std::string text(size, '\0');
  for (char& c : text) {
    c = pool[Below(pool.size())];
  }
  return text;
}

std::string Random::Runs(std::string_view pool, std::size_t size) {
  std::string text;
  while (text.size() < size) {
    const char c = OneIn(2) ? pool[Below(pool.size())] : static_cast<char>(_engine());
    text.append(OneIn(3) ? Below(100) : 1, c);
  }
  text.resize(size);
  return text;
}

void Random::DamageOnce(std::string& text, std::string_view specials, bool isSizeKept) {
  const std::size_t at = Below(text.size() + 1);
  const char c = OneIn(4) ? static_cast<char>(_engine()) : specials[Below(specials.size())];
  switch (isSizeKept ? 0 : Below(8)) {
    case 1:
      text.insert(at, 1, c);
      return;
    case 2:
      text.erase(at, 1);
      return;
    case 3:
      text.insert(at, From(specials, Below(6)));
      return;
    case 4:
      text.insert(at, text.substr(at, Below(40)));
      return;
    case 5:
      text.erase(at, OneIn(4) ? std::string::npos : Below(5));
      return;
    default:
      if (at < text.size()) {
        text[at] = c;
      }
  }
}

std::string Random::Damaged(std::string text, std::string_view specials, bool isSizeKept) {
  const std::size_t most = OneIn(6) ? 1 + text.size() / 4 : 5;
  for (std::size_t left = Below(std::min<std::size_t>(most, 2000) + 1); left > 0; --left) {
    DamageOnce(text, specials, isSizeKept);
  }
  return text;
}

std::string Random::Broken(std::string_view text) {
  static const std::vector<std::string> kBreaks = {"\r\n", "\r\n", "\n", "\r", "\n\r", "\r\n\r\n", "\n\n\n"};
  const bool isMixed = OneIn(4);
  const std::size_t fixed = OneIn(2) ? 76 : 1 + Below(140);
  std::string lineBreak = Of(kBreaks);
  std::string broken;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = isMixed ? 1 + Below(OneIn(3) ? 4 : 150) : fixed;
    broken += text.substr(at, length);
    broken += lineBreak;
    lineBreak = isMixed ? Of(kBreaks) : lineBreak;
    at += length;
  }
  return broken;
}

const std::vector<std::uint32_t>& LineLengths() {
  static const std::vector<std::uint32_t> kLengths = {0,  1,  3,   4,   5,   8,   20,  32,  60,  61,
                                                      62, 63, 64,  65,  68,  72,  73,  74,  75,  76,
                                                      77, 80, 124, 127, 128, 129, 132, 200, 256, 1000};
  return kLengths;
}

Tally::~Tally() { std::printf("compared %zu inputs\n", _count); }

bool Tally::Agrees(const std::string& difference) {
  ++_count;
  if (!difference.empty()) {
    ADD_FAILURE() << difference;
  }
  return difference.empty();
}

std::size_t Scaled(std::size_t count) {
  return std::max<std::size_t>(1, static_cast<std::size_t>(static_cast<double>(count) * Scale()) / kShare);
}

bool IsLeftOut(std::size_t number) { return number % kShare != 0; }

}  // namespace qsbase::differential
