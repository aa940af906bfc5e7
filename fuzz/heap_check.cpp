/// \file
/// Whether the targets' meter sees what is allocated: one that counts nothing would let every target pass.
#include "heap.h"

#include <cstdio>
#include <memory>
#include <new>
#include <string>

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;
constexpr std::size_t kSlack = std::size_t{64} * 1024;  // what the C library adds to a block

// Looked at from outside, so that the compiler cannot leave the memory out.
char* volatile allocated = nullptr;

std::string TextOf(std::size_t size) { return std::string(size, static_cast<char>('a' + size % 7)); }

bool Is(std::size_t peak, std::size_t expected, const char* what) {
  const bool agrees = peak >= expected && peak <= expected + kSlack;
  std::fprintf(stderr, "%s: %zu, expected %zu\n", what, peak, expected);
  return agrees;
}

bool SeesTheMostAtOnce() {
  const qsbase::fuzz::HeapMeter meter;
  for (const std::size_t pieces : {std::size_t{1}, std::size_t{3}, std::size_t{2}}) {
    TextOf(pieces * kPiece);
  }
  return Is(meter.Peak(), 3 * kPiece, "one after the other");
}

bool SeesWhatIsHeldTogether() {
  const qsbase::fuzz::HeapMeter meter;
  const std::string one = TextOf(kPiece);
  const auto other = std::make_unique<std::string>(TextOf(kPiece));
  const std::unique_ptr<char[]> third(new (std::nothrow) char[kPiece]);
  allocated = third.get();
  return Is(meter.Peak(), 3 * kPiece, "together");
}

bool StartsAnew() {
  std::string before = TextOf(4 * kPiece);
  const qsbase::fuzz::HeapMeter meter;
  const std::string one = TextOf(kPiece);
  before = std::string();
  return Is(meter.Peak(), kPiece, "beside what was there");
}

}  // namespace

int main() {
  const bool sees[] = {SeesTheMostAtOnce(), SeesWhatIsHeldTogether(), StartsAnew()};
  return sees[0] && sees[1] && sees[2] ? 0 : 1;
}
