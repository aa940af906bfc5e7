#include <QSbase/errors.h>
#include <QSbase/text/chartables.h>
#include <QSbase/text/hexkernel.h>
#include <QSbase/text/qsstring.h>
#include <QSbase/text/textkernel.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

using namespace qsbase::detail;

// ---- Trimming and case ----

namespace {

/// Long texts are worked on in blocks that the first-level cache holds.
constexpr std::size_t kBlockSize = 8192;

/// Below this length a loop is over before a kernel has begun, and up to the other one before the length of a text and
/// a kernel.
constexpr std::size_t kShortestForKernel = 16;
constexpr std::size_t kShortText = 32;

const TextKernels& Kernels() { return TextKernelsOf(CurrentSimdLevel()); }

struct CaseMap {
  const CharMap& map;
  void (*TextKernels::*kernel)(char* text, std::size_t length);
};

constexpr CaseMap kToLower = {kLowerMap, &TextKernels::toLower};
constexpr CaseMap kToUpper = {kUpperMap, &TextKernels::toUpper};
constexpr CaseMap kToLowerControlToSpace = {kLowerControlToSpaceMap, &TextKernels::toLowerControlToSpace};

char Mapped(char c, const CharMap& map) { return static_cast<char>(map[static_cast<unsigned char>(c)]); }

inline void MapText(char* text, std::size_t length, const CaseMap& map) {
  if (length >= kShortestForKernel) {
    (Kernels().*map.kernel)(text, length);
    return;
  }
  for (std::size_t i = 0; i < length; ++i) {
    text[i] = Mapped(text[i], map.map);
  }
}

/// How long the text is, but at most a block.
std::size_t BlockLength(const char* text) {
  const void* const end = std::memchr(text, '\0', kBlockSize);
  return end == nullptr ? kBlockSize : static_cast<std::size_t>(static_cast<const char*>(end) - text);
}

/// Maps sixteen characters, or fewer before the end. Returns false at the end.
inline bool MapSixteen(char* text, const CaseMap& map) {
  for (int i = 0; i < 16; ++i) {
    if (text[i] == '\0') {
      return false;
    }
    text[i] = Mapped(text[i], map.map);
  }
  return true;
}

inline void MapText(char* text, const CaseMap& map) {
  if (text == nullptr) {
    return;
  }
  for (const char* const shortEnd = text + kShortText; text != shortEnd; text += 16) {
    if (!MapSixteen(text, map)) {
      return;
    }
  }
  for (std::size_t length = kBlockSize; length == kBlockSize; text += length) {
    length = BlockLength(text);
    MapText(text, length, map);
  }
}

/// A copy of a long text that change(text, length) has gone over: each block is changed while the cache holds it.
template <class Change>
[[gnu::noinline]] std::string ChangedBlocks(const std::string& text, Change change) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); at = result.size()) {
    result.append(text, at, kBlockSize);
    change(result.data() + at, result.size() - at);
  }
  return result;
}

// Short texts have functions of their own, which make their result in the caller's place.

inline std::string MappedShort(const std::string& text, const CaseMap& map) {
  std::string result(text);
  MapText(result.data(), result.size(), map);
  return result;
}

inline std::string Mapped(const std::string& text, const CaseMap& map) {
  if (text.size() <= kBlockSize) {
    return MappedShort(text, map);
  }
  return ChangedBlocks(text, [&map](char* block, std::size_t length) { MapText(block, length, map); });
}

}  // namespace

std::string QsString::Trim(const std::string& text, unsigned int mask) { return std::string(Trimmed(text, mask)); }

std::string QsString::TrimLeft(const std::string& text, unsigned int mask) {
  return std::string(TrimmedLeft(text, mask));
}

std::string QsString::TrimRight(const std::string& text, unsigned int mask) {
  return std::string(TrimmedRight(text, mask));
}

void QsString::TrimChar_Inplace(std::string& text, char c) {
  const std::size_t last = text.find_last_not_of(c);
  if (last == std::string::npos) {
    text.clear();
    return;
  }
  text.erase(last + 1);
  text.erase(0, text.find_first_not_of(c));
}

void QsString::ToLower_Inplace(char* text) { MapText(text, kToLower); }

void QsString::ToLower_Inplace(char* text, unsigned int length) {
  if (text != nullptr) {
    MapText(text, length, kToLower);
  }
}

void QsString::ToLower_Inplace(std::string& text) { MapText(text.data(), text.size(), kToLower); }

void QsString::ToUpper_Inplace(char* text) { MapText(text, kToUpper); }

void QsString::ToUpper_Inplace(char* text, unsigned int length) {
  if (text != nullptr) {
    MapText(text, length, kToUpper);
  }
}

void QsString::ToUpper_Inplace(std::string& text) { MapText(text.data(), text.size(), kToUpper); }

std::string QsString::ToLower(const std::string& text) { return Mapped(text, kToLower); }

std::string QsString::ToUpper(const std::string& text) { return Mapped(text, kToUpper); }

void QsString::ToLowerControlToSpace_Inplace(std::string& text) {
  MapText(text.data(), text.size(), kToLowerControlToSpace);
}

namespace {

std::string StripShort(const std::string& text, unsigned int mask) {
  std::string result(text.size(), '\0');
  std::size_t kept = 0;
  for (const char c : text) {
    result[kept] = c;
    kept += HasClass(c, mask) ? 0U : 1U;
  }
  result.resize(kept);
  return result;
}

std::string StripLong(const std::string& text, unsigned int mask) {
  const ByteSet set = ByteSetOf(mask);
  char kept[kBlockSize + kStripSlack];
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); at += kBlockSize) {
    const std::size_t length = std::min(kBlockSize, text.size() - at);
    const char* const end = Kernels().strip(text.data() + at, length, set, kept);
    result.append(kept, static_cast<std::size_t>(end - kept));
  }
  return result;
}

}  // namespace

std::string QsString::StripCharacters(const std::string& text, unsigned int mask) {
  constexpr std::size_t kLong = 32;
  std::string result = text.size() < kLong ? StripShort(text, mask) : StripLong(text, mask);
  if (result.empty()) {
    return text;  // kept: a text of nothing but stripped characters is given back
  }
  return result;
}

// ---- Formatting ----

namespace {

constexpr std::size_t kWorkBufferSize = 32768;

// The C library ends its output with a zero; the last character that this zero has taken is formatted once more.
void RestoreLastCharacter(char* buffer, std::size_t size, const char* format, std::va_list arguments) {
  std::array<char, 512> small;
  std::unique_ptr<char[]> large;
  char* work = small.data();
  if (size + 1 > small.size()) {
    large.reset(new (std::nothrow) char[size + 1]);
    work = large.get();
  }
  if (work != nullptr && std::vsnprintf(work, size + 1, format, arguments) >= 0) {
    buffer[size - 1] = work[size - 1];
  }
}

/// Whether the format ends before the conversion of its last directive. Some C libraries fail on that, others end the
/// text there and say nothing.
bool EndsInDirective(const char* format) {
  constexpr const char* kBeforeConversion = "-+ #0123456789.*$'hlLqjztI";
  while ((format = std::strchr(format, '%')) != nullptr) {
    ++format;
    format += std::strspn(format, kBeforeConversion);
    if (*format == '\0') {
      return true;
    }
    ++format;
  }
  return false;
}

}  // namespace

int Qs_vsnprintf(char* buffer, unsigned int size, const char* format, std::va_list arguments) {
  if (buffer == nullptr || size == 0 || format == nullptr) {
    return -1;
  }
  buffer[0] = '\0';
  std::va_list again;
  va_copy(again, arguments);
  const int written = std::vsnprintf(buffer, size, format, arguments);
  const bool fits = written >= 0 && static_cast<unsigned int>(written) < size;
  if (written >= 0 && !fits) {
    RestoreLastCharacter(buffer, size, format, again);
  }
  va_end(again);
  return fits && !EndsInDirective(format) ? written : -1;
}

int Qs_snprintf(char* buffer, unsigned int size, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int written = Qs_vsnprintf(buffer, size, format, arguments);
  va_end(arguments);
  return written;
}

namespace {

std::string FormatLong(const char* format, std::va_list arguments) {
  const std::unique_ptr<char[]> work(new (std::nothrow) char[kWorkBufferSize]);
  if (work == nullptr) {
    return {};
  }
  work[0] = '\0';
  std::vsnprintf(work.get(), kWorkBufferSize, format, arguments);
  return work.get();
}

}  // namespace

std::string strprintf(const char* format, ...) {
  if (format == nullptr) {
    return {};
  }
  std::array<char, 512> small;
  small[0] = '\0';
  std::va_list arguments;
  std::va_list again;
  va_start(arguments, format);
  va_copy(again, arguments);
  const int written = std::vsnprintf(small.data(), small.size(), format, arguments);
  const bool complete = written >= 0 && static_cast<std::size_t>(written) < small.size();
  std::string result = complete ? std::string(small.data()) : FormatLong(format, again);
  va_end(again);
  va_end(arguments);
  return result;
}

std::string AlignText(const std::string& text, unsigned int width, bool padRight, char fill) {
  if (text.size() >= width) {
    return text.substr(0, width);
  }
  std::string result(text);
  result.insert(padRight ? result.size() : 0, width - text.size(), fill);
  return result;
}

// ---- Searching ----

namespace {

constexpr CharMap MakeAsciiFold() {
  CharMap map{};
  for (std::size_t c = 0; c < map.size(); ++c) {
    map[c] = static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
  }
  return map;
}

constexpr CharMap kAsciiFold = MakeAsciiFold();

constexpr unsigned char AsciiFold(char c) { return kAsciiFold[static_cast<unsigned char>(c)]; }

bool StartsWithFolded(const char* text, const char* prefix) {
  // The end of the text differs from every character of the prefix, so it is never passed.
  while (*prefix != '\0' && AsciiFold(*text) == AsciiFold(*prefix)) {
    ++text;
    ++prefix;
  }
  return *prefix == '\0';
}

}  // namespace

const char* stristr(const char* haystack, const char* needle) {
  if (haystack == nullptr || needle == nullptr) {
    return nullptr;
  }
  if (*needle == '\0') {
    return haystack;
  }
  const unsigned char first = AsciiFold(*needle);
  for (; *haystack != '\0'; ++haystack) {
    if (AsciiFold(*haystack) == first && StartsWithFolded(haystack + 1, needle + 1)) {
      return haystack;
    }
  }
  return nullptr;
}

bool QsStringFind(const std::string& text, const std::string& what, bool caseSensitive) {
  if (caseSensitive) {
    return text.find(what) != std::string::npos;
  }
  return QsString::ToLower(text).find(QsString::ToLower(what)) != std::string::npos;
}

// ---- Splitting and replacing ----

namespace {

bool IsElement(const std::vector<std::string>& parts, const std::string& text) {
  const std::less<const std::string*> before;
  return !before(&text, parts.data()) && before(&text, parts.data() + parts.size());
}

// Cuts behind every piece that a separator ends; gives what stands behind the last separator.
std::string_view CutAtSeparators(std::string_view text, std::string_view separator, std::vector<std::string>& parts,
                                 bool keepEmpty) {
  std::size_t start = 0;
  for (std::size_t end; (end = text.find(separator, start)) != std::string_view::npos;) {
    if (end > start || keepEmpty) {
      parts.emplace_back(text.substr(start, end - start));
    }
    start = end + separator.size();
  }
  return text.substr(start);
}

// As if the separator followed the text: it may begin within what is left then, but not before its own length.
void SplitLongerText(const std::string& text, const std::string& separator, std::vector<std::string>& parts,
                     bool keepEmpty) {
  const std::string_view rest = CutAtSeparators(text, separator, parts, keepEmpty);
  const bool endsWithSeparator = text.compare(text.size() - separator.size(), separator.size(), separator) == 0;
  if (endsWithSeparator && !keepEmpty) {
    return;
  }
  const std::size_t seam = rest.size() - std::min(rest.size(), separator.size() - 1);
  const std::size_t end = seam + (std::string(rest.substr(seam)) + separator).find(separator);
  if (end > 0 || keepEmpty) {
    parts.emplace_back(rest.substr(0, end));
  }
}

}  // namespace

unsigned int SplitString(const std::string& text, const std::string& separator, std::vector<std::string>& parts,
                         bool keepEmpty) {
  if (IsElement(parts, text) || IsElement(parts, separator)) {
    return SplitString(std::string(text), std::string(separator), parts, keepEmpty);
  }
  parts.clear();
  if (text.empty() || separator.empty()) {
    return 0;
  }
  if (separator.size() > text.size()) {
    parts.push_back(text);
  } else {
    SplitLongerText(text, separator, parts, keepEmpty);
  }
  return static_cast<unsigned int>(parts.size());
}

void SeparateString(const std::string& text, char separator, std::string& before, std::string& after) {
  const std::size_t position = text.find(separator);
  std::string rest = position == std::string::npos ? std::string() : text.substr(position + 1);
  before.assign(text, 0, position);
  after = std::move(rest);
}

namespace {

// `searched` is the text itself or a copy of it in one case; matches are found there and replaced in the text.

// In place, for a replacement not longer than what it replaces: writing never overtakes reading.
std::size_t ReplaceShrinking(std::string& text, const std::string& searched, const std::string& what,
                             const std::string& with) {
  std::size_t count = 0;
  std::size_t read = 0;
  std::size_t write = 0;
  for (std::size_t found; (found = searched.find(what, read)) != std::string::npos; ++count) {
    std::memmove(text.data() + write, text.data() + read, found - read);
    write += found - read;
    std::memcpy(text.data() + write, with.data(), with.size());
    write += with.size();
    read = found + what.size();
  }
  std::memmove(text.data() + write, text.data() + read, text.size() - read);
  text.resize(text.size() - (read - write));
  return count;
}

std::size_t CountMatches(const std::string& text, const std::string& what) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += what.size()) {
    ++count;
  }
  return count;
}

// Into a new text of the final size: counting first is cheaper than growing several times. Without a match the result
// stays as it is.
std::size_t ReplaceGrowing(const std::string& text, const std::string& searched, const std::string& what,
                           const std::string& with, std::string& result) {
  const std::size_t count = CountMatches(searched, what);
  if (count == 0) {
    return 0;
  }
  result.reserve(text.size() + count * (with.size() - what.size()));
  std::size_t read = 0;
  for (std::size_t found; (found = searched.find(what, read)) != std::string::npos;) {
    result.append(text, read, found - read).append(with);
    read = found + what.size();
  }
  result.append(text, read);
  return count;
}

std::size_t ReplaceAll(std::string& text, const std::string& searched, const std::string& what,
                       const std::string& with) {
  if (with.size() <= what.size()) {
    return ReplaceShrinking(text, searched, what, with);
  }
  std::string result;
  const std::size_t count = ReplaceGrowing(text, searched, what, with, result);
  if (count != 0) {
    text.swap(result);
  }
  return count;
}

}  // namespace

int QsReplaceStringInPlace(std::string& text, const std::string& what, const std::string& with, bool caseSensitive) {
  if (text.empty() || what.empty()) {
    return 0;
  }
  if (&what == &text || &with == &text) {
    return QsReplaceStringInPlace(text, std::string(what), std::string(with), caseSensitive);
  }
  const std::size_t count = caseSensitive ? ReplaceAll(text, text, what, with)
                                          : ReplaceAll(text, QsString::ToLower(text), QsString::ToLower(what), with);
  return static_cast<int>(std::min<std::size_t>(count, std::numeric_limits<int>::max()));
}

std::string QsReplaceString(const std::string& text, const std::string& what, const std::string& with,
                            bool caseSensitive) {
  std::string result;
  if (what.empty() || with.size() <= what.size()) {
    result = text;
    QsReplaceStringInPlace(result, what, with, caseSensitive);
    return result;
  }
  const std::size_t count = caseSensitive
                                ? ReplaceGrowing(text, text, what, with, result)
                                : ReplaceGrowing(text, QsString::ToLower(text), QsString::ToLower(what), with, result);
  if (count == 0) {
    result = text;
  }
  return result;
}

void QsReplaceCharInPlace(std::string& text, char from, char to) {
  if (text.size() < kShortestForKernel) {
    std::replace(text.begin(), text.end(), from, to);
  } else {
    Kernels().replace(text.data(), text.size(), from, to);
  }
}

std::string QsReplaceChar(const std::string& text, char from, char to) {
  std::string result(text);
  QsReplaceCharInPlace(result, from, to);
  return result;
}

namespace {

template <typename Char>
void BlankLineBreaksAndTabs(Char* text, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    const Char c = text[i];
    text[i] = c == '\n' || c == '\r' || c == '\t' ? Char{' '} : c;
  }
}

}  // namespace

void ReplaceCRLFHT(std::string& text) { BlankLineBreaksAndTabs(text.data(), text.size()); }

void ReplaceCRLFHT(unsigned char* text, int length) {
  if (text != nullptr && length > 0) {
    BlankLineBreaksAndTabs(text, static_cast<std::size_t>(length));
  }
}

void QsConditionalAppendChar(std::string& text, char c) {
  if (text.empty() || text.back() != c) {
    text.push_back(c);
  }
}

// ---- Hex ----

namespace {

const HexKernels& HexLoops() { return HexKernelsOf(CurrentSimdLevel()); }

template <typename Char>
void WritePair(unsigned char byte, Char* out) {
  std::memcpy(out, &kHexPairs[std::size_t{2} * byte], 2);
}

inline void WriteHex(const unsigned char* bytes, std::size_t length, unsigned char* out) {
  if (length >= kShortestForKernel) {
    HexLoops().encode(bytes, length, out);
    return;
  }
  for (std::size_t i = 0; i < length; ++i) {
    WritePair(bytes[i], out + 2 * i);
  }
}

/// Makes a text `size` bytes long, each block of which write(out, at, length) writes while the cache holds it.
template <class Write>
void WriteBlocks(std::string& text, std::size_t size, Write write) {
  text.reserve(size);
  for (std::size_t at = 0; at < size; at = text.size()) {
    text.resize(std::min(size, at + kBlockSize));
    write(reinterpret_cast<unsigned char*>(&text[at]), at, text.size() - at);
  }
}

inline std::string ToShortHex(const unsigned char* bytes, std::size_t length) {
  std::string result(2 * length, '\0');
  WriteHex(bytes, length, reinterpret_cast<unsigned char*>(result.data()));
  return result;
}

[[gnu::noinline]] std::string ToLongHex(const unsigned char* bytes, std::size_t length) {
  static_assert(kBlockSize % 2 == 0);
  std::string result;
  WriteBlocks(result, 2 * length, [bytes](unsigned char* out, std::size_t at, std::size_t size) {
    WriteHex(bytes + at / 2, size / 2, out);
  });
  return result;
}

inline std::string ToHex(const unsigned char* bytes, std::size_t length) {
  return length <= kBlockSize / 2 ? ToShortHex(bytes, length) : ToLongHex(bytes, length);
}

std::string ToSpacedHex(const unsigned char* bytes, std::size_t length) {
  std::string result(3 * length, ' ');
  for (std::size_t i = 0; i < length; ++i) {
    WritePair(bytes[i], &result[3 * i]);
  }
  result.pop_back();
  return result;
}

[[noreturn]] void ThrowBadPair(const unsigned char* pair) {
  std::string text;
  for (int i = 0; i < 2 && pair[i] != '\0'; ++i) {
    text.push_back(static_cast<char>(pair[i]));
  }
  throw ExBase("character in '" + text + "' is not a hex character");
}

unsigned char PairValue(const unsigned char* pair) {
  const unsigned char high = kHexValues[pair[0]];
  // The second byte is only there when the first was no terminator.
  const unsigned char low = high == kNoHexDigit ? kNoHexDigit : kHexValues[pair[1]];
  if (low == kNoHexDigit) {
    ThrowBadPair(pair);
  }
  return static_cast<unsigned char>(high << 4 | low);
}

void CheckIsEven(std::size_t length) {
  if (length % 2 != 0) {
    throw ExBase("length is not a multiple of 2");
  }
}

/// Decodes pairs as far as they are such. Returns how many.
std::size_t ReadHex(const unsigned char* hex, std::size_t pairs, unsigned char* out) {
  return pairs < kShortestForKernel ? DecodeHex(hex, pairs, out) : HexLoops().decode(hex, pairs, out);
}

/// Decodes up to the terminating zero.
void DecodeShortHex(const unsigned char* hex, unsigned char* out) {
  for (; *hex != '\0'; hex += 2) {
    *out++ = PairValue(hex);
  }
}

void DecodeLongHex(const unsigned char* hex, unsigned char* out) {
  for (std::size_t length = kBlockSize; length == kBlockSize; hex += length, out += length / 2) {
    length = BlockLength(reinterpret_cast<const char*>(hex));
    const std::size_t done = ReadHex(hex, length / 2, out);
    if (2 * done != length) {
      ThrowBadPair(hex + 2 * done);
    }
  }
}

/// The bytes of the pairs up to the end, or to a zero in the place of a first digit: zeros are behind that.
std::string DecodedHex(const std::string& hex) {
  std::string result;
  result.reserve(hex.size() / 2);
  CheckIsEven(hex.size());
  const auto* const digits = reinterpret_cast<const unsigned char*>(hex.data());
  bool isOver = false;
  WriteBlocks(result, hex.size() / 2, [&](unsigned char* out, std::size_t at, std::size_t size) {
    const std::size_t done = isOver ? size : ReadHex(digits + 2 * at, size, out);
    isOver = isOver || (done != size && digits[2 * (at + done)] == '\0');
    if (done != size && !isOver) {
      ThrowBadPair(digits + 2 * (at + done));
    }
  });
  return result;
}

}  // namespace

void ByteToHex(unsigned char byte, unsigned char* out) { WritePair(byte, out); }

void ByteStringToHexString(const unsigned char* bytes, unsigned int length, unsigned char* out) {
  WriteHex(bytes, length, out);
  out[std::size_t{2} * length] = '\0';
}

std::string Byte2Hex(unsigned char byte) { return {&kHexPairs[std::size_t{2} * byte], 2}; }

std::string Bytes2Hex(const unsigned char* bytes, int length, bool spaced) {
  if (bytes == nullptr || length <= 0) {
    return {};
  }
  const auto count = static_cast<std::size_t>(length);
  return spaced ? ToSpacedHex(bytes, count) : ToHex(bytes, count);
}

std::string Bytes2Hex(unsigned int value, bool spaced) {
  std::array<unsigned char, 4> bytes;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<unsigned char>(value >> (24 - 8 * i) & 0xFF);
  }
  return Bytes2Hex(bytes.data(), static_cast<int>(bytes.size()), spaced);
}

unsigned char HexToByte(const unsigned char* pair) {
  if (pair == nullptr) {
    throw ExBase("HexToByte called with invalid parameter (NULL)");
  }
  return PairValue(pair);
}

void HexStringToByteString(const unsigned char* hex, unsigned int length, unsigned char* out) {
  if (hex == nullptr) {
    HexToByte(nullptr);
  }
  CheckIsEven(length);
  // The length only says what to expect, or nothing when it is 0.
  if (length != 0 && length <= kShortText) {
    DecodeShortHex(hex, out);
  } else {
    DecodeLongHex(hex, out);
  }
}

std::string String2Hex(const std::string& bytes) {
  return ToHex(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

std::string Hex2String(const std::string& hex) {
  try {
    return DecodedHex(hex);
  } catch (const std::bad_alloc&) {
    return {};
  }
}

// ---- Numbers ----

namespace {

bool IsDigit(char c) { return HasClass(c, kNumeric); }

std::int64_t ParseHex(const char* digits) {
  std::uint64_t value = 0;
  for (; *digits != '\0'; ++digits) {
    const unsigned char digit = kHexValues[static_cast<unsigned char>(*digits)];
    if (digit == kNoHexDigit) {
      return 0;
    }
    value = value << 4 | digit;
  }
  return static_cast<std::int64_t>(value);
}

// White space, a sign, digits; anything behind them is ignored, and values out of range stop at the limit.
std::int64_t ParseDecimal(const char* text) {
  while (HasClass(*text, kWhiteSpace)) {
    ++text;
  }
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') {
    ++text;
  }
  const std::uint64_t limit = std::uint64_t{std::numeric_limits<std::int64_t>::max()} + (negative ? 1U : 0U);
  std::uint64_t value = 0;
  for (; IsDigit(*text); ++text) {
    const auto digit = static_cast<std::uint64_t>(*text - '0');
    if (value > (limit - digit) / 10) {
      value = limit;
      break;
    }
    value = value * 10 + digit;
  }
  return static_cast<std::int64_t>(negative ? 0 - value : value);
}

}  // namespace

std::int64_t AsciiToInt64(const char* text) {
  if (text == nullptr) {
    return 0;
  }
  const bool isHex = text[0] == '0' && (text[1] == 'x' || text[1] == 'X') && text[2] != '\0';
  return isHex ? ParseHex(text + 2) : ParseDecimal(text);
}

int AsciiToInt(const char* text) {
  const std::int64_t value = AsciiToInt64(text);
  if (value > std::int64_t{0xFFFFFFFF}) {
    return std::numeric_limits<int>::max();
  }
  if (value < std::numeric_limits<int>::min()) {
    return std::numeric_limits<int>::min();
  }
  return static_cast<int>(static_cast<unsigned int>(value));
}

namespace {

// Takes the run of digits at `position` (moved behind it).
std::string_view TakeDigits(const char*& position) {
  const char* first = position;
  while (IsDigit(*position)) {
    ++position;
  }
  return {first, static_cast<std::size_t>(position - first)};
}

// Digits only, so without a locale; too many of them are infinite.
double DigitsValue(std::string_view digits) {
  double value = 0.0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return result.ec == std::errc::result_out_of_range ? std::numeric_limits<double>::infinity() : value;
}

double TakeFraction(const char*& position) {
  if (*position != '.' && *position != ',') {
    return 0.0;
  }
  ++position;
  const std::string_view digits = TakeDigits(position).substr(0, 10);
  return DigitsValue(digits) / std::pow(10.0, static_cast<double>(digits.size()));
}

bool IsExponentMark(char c) { return c == 'e' || c == 'E' || c == 'd' || c == 'D'; }

double ApplyExponent(double value, const char* position) {
  if (!IsExponentMark(*position)) {
    return value;
  }
  ++position;
  const bool negative = *position == '-';
  if (*position == '+' || *position == '-') {
    ++position;
  }
  const double exponent = DigitsValue(TakeDigits(position));
  if (exponent == 0.0 || value == 0.0 || std::isinf(value)) {
    return value;  // also keeps 0 and infinity from becoming "not a number" at huge exponents
  }
  const double power = std::pow(10.0, exponent);
  return negative ? value / power : value * power;
}

}  // namespace

double AsciiToDouble(const char* text) {
  if (text == nullptr) {
    return 0.0;
  }
  while (*text == ' ') {
    ++text;
  }
  const bool negative = *text == '-';
  if (*text == '+' || *text == '-') {
    ++text;
  }
  double value = DigitsValue(TakeDigits(text));
  value += TakeFraction(text);
  value = ApplyExponent(value, text);
  return negative ? -value : value;
}

// ---- Names and sizes ----

namespace {

bool IsAsciiLetter(char c) { return HasClass(c, kAscii) && HasClass(c, kAlpha); }

void AppendEscaped(std::string& result, char c) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  const char escaped[] = {'_', digits[byte >> 4], digits[byte & 15], '_'};
  result.append(escaped, sizeof escaped);
}

}  // namespace

std::string MakeSymbolicName(const std::string& name) {
  if (name.empty()) {
    return "Unnamed_Object";
  }
  const auto letters = static_cast<std::size_t>(std::count_if(name.begin(), name.end(), &IsAsciiLetter));
  const auto digits = static_cast<std::size_t>(std::count_if(name.begin() + 1, name.end(), &IsDigit));
  const std::size_t escaped = name.size() - letters - digits;
  std::string result;
  result.reserve(name.size() + 3 * escaped);
  for (const char c : name) {
    if (IsAsciiLetter(c) || (IsDigit(c) && !result.empty())) {
      result.push_back(c);
    } else {
      AppendEscaped(result, c);
    }
  }
  return result;
}

std::string SymbolicNameToString(const std::string& name) {
  std::string result;
  result.reserve(name.size());
  for (std::size_t i = 0; i < name.size(); ++i) {
    const bool escaped =
        name[i] == '_' && i + 2 < name.size() && HasClass(name[i + 1], kHexDigit) && HasClass(name[i + 2], kHexDigit);
    if (!escaped) {
      result.push_back(name[i]);
      continue;
    }
    result.push_back(static_cast<char>(PairValue(reinterpret_cast<const unsigned char*>(&name[i + 1]))));
    i += i + 3 < name.size() && name[i + 3] == '_' ? 3U : 2U;
  }
  return result;
}

namespace {

std::string RoundedWithUnit(double value, const char* unit) {
  // NOLINTNEXTLINE(bugprone-incorrect-roundings): a half more, then cut off: so it is promised
  return std::to_string(static_cast<std::int64_t>(value + 0.5)) + " " + unit;
}

}  // namespace

std::string MemoryString(std::int64_t bytes) {
  const double kilo = static_cast<double>(bytes) / 1024;
  const double mega = kilo / 1024;
  const double giga = mega / 1024;
  if (kilo <= 1000) {
    return kilo < 2 ? RoundedWithUnit(static_cast<double>(bytes), "Bytes") : RoundedWithUnit(kilo, "KB");
  }
  if (mega <= 1000) {
    return mega < 2 ? RoundedWithUnit(kilo, "KB") : RoundedWithUnit(mega, "MB");
  }
  return giga >= 1 ? RoundedWithUnit(giga, "GB") : RoundedWithUnit(mega, "MB");
}
