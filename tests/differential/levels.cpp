#include "levels.h"

#include <QSbase/codec/encodedecode.h>
#include <common/sanitized.h>

#include <algorithm>
#include <new>

namespace qsbase::differential {

namespace {

constexpr std::size_t kLine = 64;
#ifdef QSBASE_TESTS_SANITIZED
constexpr std::size_t kBehind = 0;
#else
constexpr std::size_t kBehind = 64;
#endif

/// What lies around a content: letters, digits, escapes and line breaks, all of use to some decoder.
char Surrounding(std::size_t place) { return "A=3D\r\nq0!M`y"[place % 12]; }

std::string Hex(std::string_view bytes) {
  std::string text;
  for (char c : bytes) {
    text += "0123456789ABCDEF"[static_cast<unsigned char>(c) / 16];
    text += "0123456789ABCDEF"[static_cast<unsigned char>(c) % 16];
  }
  return text;
}

/// The bytes from a place on, not too many.
std::string Excerpt(std::string_view bytes, std::size_t from) {
  constexpr std::size_t kMost = 400;
  from = std::min(from, bytes.size());
  return Hex(bytes.substr(from, kMost)) + (bytes.size() - from > kMost ? "..." : "");
}

std::string DataDifference(std::string_view expected, std::string_view actual) {
  const auto places = std::mismatch(
      expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(std::min(expected.size(), actual.size())),
      actual.begin());
  const auto at = static_cast<std::size_t>(places.first - expected.begin());
  const std::size_t from = at < 8 ? 0 : at - 8;
  return "byte " + std::to_string(at) + ", sizes " + std::to_string(expected.size()) + " and " +
         std::to_string(actual.size()) + ", from byte " + std::to_string(from) + " expected " +
         Hex(expected.substr(from, 24)) + " but is " + Hex(actual.substr(from, 24));
}

std::string Pair(const char* what, long long expected, long long actual) {
  return std::string(what) + ": expected " + std::to_string(expected) + " but is " + std::to_string(actual);
}

}  // namespace

void Block::Release::operator()(char* memory) const { ::operator delete[](memory, std::align_val_t(kLine)); }

Block::Block(std::string_view content, std::size_t alignment)
    : _memory(
          static_cast<char*>(::operator new[](alignment % kLine + content.size() + kBehind, std::align_val_t(kLine)))),
      _before(alignment % kLine),
      _size(content.size()) {
  for (std::size_t i = 0; i < _before; ++i) {
    _memory[i] = Surrounding(i);
  }
  for (std::size_t i = 0; i < kBehind; ++i) {
    _memory[_before + _size + i] = Surrounding(i);
  }
  Fill(content);
}

void Block::Fill(std::string_view content) { std::copy(content.begin(), content.end(), Data()); }

bool Block::IsIntactAround() const {
  for (std::size_t i = 0; i < _before; ++i) {
    if (_memory[i] != Surrounding(i)) {
      return false;
    }
  }
  for (std::size_t i = 0; i < kBehind; ++i) {
    if (_memory[_before + _size + i] != Surrounding(i)) {
      return false;
    }
  }
  return true;
}

std::string Difference(const Outcome& expected, const Outcome& actual) {
  if (expected.status != actual.status) {
    return Pair("status", expected.status, actual.status);
  }
  if (expected.data != actual.data) {
    return DataDifference(expected.data, actual.data);
  }
  if (expected.illegal != actual.illegal) {
    return Pair("illegal characters", static_cast<long long>(expected.illegal), static_cast<long long>(actual.illegal));
  }
  if (expected.parsed != actual.parsed) {
    return Pair("parsed characters", static_cast<long long>(expected.parsed), static_cast<long long>(actual.parsed));
  }
  return "";
}

std::string Report(const char* form, const std::string& difference, std::string_view input, const std::string& with) {
  return std::string(form) + " form: " + difference + "; " + with + "; input of " + std::to_string(input.size()) +
         " bytes: " + Excerpt(input, 0);
}

Output::~Output() {
  if (_data != &_sentinel) {
    CEncodeDecode::FreeBuffer(_data, _flags);
  }
}

bool Output::IsWellFormed(int status) const {
  if (_data == nullptr) {
    return _length == 0;
  }
  return status == 0 && _data != &_sentinel && _data[_length] == '\0';
}

}  // namespace qsbase::differential
