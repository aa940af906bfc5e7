#include <QSbase/text/chartables.h>
#include <QSbase/text/qschar.h>

#include <algorithm>

using namespace qsbase::detail;

namespace {

constexpr bool Any(unsigned int mask, unsigned int bits) { return (mask & bits) != 0; }

constexpr bool AsciiAnd(unsigned int mask, unsigned int bits) { return Any(mask, kAscii) && Any(mask, bits); }

}  // namespace

// Both classes ask the same questions, each of its own table.
#define QSBASE_CHAR_PREDICATE(name, test)                            \
  bool QsChar::name(unsigned char c) { return test(kCharMasks[c]); } \
  bool QsCharMod::name(unsigned char c) const { return test(_masks[c]); }

#define QSBASE_CHAR_CLASS(name, bits)                                               \
  static constexpr bool Test##name(unsigned int mask) { return Any(mask, (bits)); } \
  QSBASE_CHAR_PREDICATE(name, Test##name)

#define QSBASE_CHAR_ASCII_CLASS(name, bits)                                              \
  static constexpr bool Test##name(unsigned int mask) { return AsciiAnd(mask, (bits)); } \
  QSBASE_CHAR_PREDICATE(name, Test##name)

QSBASE_CHAR_CLASS(IsAlpha, kAlpha)
QSBASE_CHAR_CLASS(IsNumeric, kNumeric)
QSBASE_CHAR_CLASS(IsAlphaNumeric, kAlpha | kNumeric)
QSBASE_CHAR_CLASS(IsAscii, kAscii)
QSBASE_CHAR_ASCII_CLASS(IsAsciiAlpha, kAlpha)
QSBASE_CHAR_ASCII_CLASS(IsAsciiAlphaNumeric, kAlpha | kNumeric)
QSBASE_CHAR_CLASS(IsLower, kLower)
QSBASE_CHAR_CLASS(IsUpper, kUpper)
QSBASE_CHAR_CLASS(IsWhiteSpace, kWhiteSpace)
QSBASE_CHAR_CLASS(IsControl, kControl)
QSBASE_CHAR_CLASS(IsWordDelimiter, kWordDelimiter)
QSBASE_CHAR_CLASS(IsSentenceDelimiter, kSentenceDelimiter)
QSBASE_CHAR_CLASS(IsHexDigit, kHexDigit)
QSBASE_CHAR_CLASS(IsSymbol, kSymbol)
QSBASE_CHAR_CLASS(IsPunctuation, kPunctuation)
QSBASE_CHAR_CLASS(IsInvalidFileChar, kInvalidFileChar)

unsigned int QsChar::GetMask(unsigned char c) { return kCharMasks[c]; }

unsigned char QsChar::ToLower(unsigned char c) { return kLowerMap[c]; }

unsigned char QsChar::ToUpper(unsigned char c) { return kUpperMap[c]; }

void QsChar::ToLower_Inplace(unsigned char& c) { c = kLowerMap[c]; }

void QsChar::ToUpper_Inplace(unsigned char& c) { c = kUpperMap[c]; }

QsCharMod::QsCharMod() : _modified(false) { std::copy(kCharMasks.begin(), kCharMasks.end(), _masks); }

bool QsCharMod::IsModified() const { return _modified; }

namespace {

// Calls change(entry) for each entry of the range; true when there was one. The count is an 8-bit one: callers know
// that 0-255 in one call comes out as no entry at all.
template <typename Change>
bool ChangeRange(unsigned int* masks, unsigned char first, unsigned char last, Change change) {
  if (first > last) {
    return false;
  }
  const auto count = static_cast<unsigned char>(last - first + 1);
  std::for_each(masks + first, masks + first + count, change);
  return count > 0;
}

template <typename Change>
bool ChangeListed(unsigned int* masks, const char* chars, unsigned char count, Change change) {
  for (unsigned int i = 0; i < count; ++i) {
    change(masks[static_cast<unsigned char>(chars[i])]);
  }
  return count > 0;
}

auto Adding(unsigned int flags) {
  return [flags](unsigned int& mask) { mask |= flags; };
}

auto Removing(unsigned int flags) {
  return [flags](unsigned int& mask) { mask &= ~flags; };
}

}  // namespace

void QsCharMod::SetFlag(unsigned char first, unsigned char last, unsigned int flags) {
  _modified |= ChangeRange(_masks, first, last, Adding(flags));
}

int QsCharMod::SetFlag(const char* chars, unsigned char count, unsigned int flags) {
  if (chars == nullptr) {
    return -1;
  }
  _modified |= ChangeListed(_masks, chars, count, Adding(flags));
  return 0;
}

void QsCharMod::RemoveFlag(unsigned char first, unsigned char last, unsigned int flags) {
  _modified |= ChangeRange(_masks, first, last, Removing(flags));
}

int QsCharMod::RemoveFlag(const char* chars, unsigned char count, unsigned int flags) {
  if (chars == nullptr) {
    return -1;
  }
  _modified |= ChangeListed(_masks, chars, count, Removing(flags));
  return 0;
}
