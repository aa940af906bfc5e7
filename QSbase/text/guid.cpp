#include <QSbase/text/guid.h>

#include <QSbase/errors.h>
#include <QSbase/immortal.h>
#include <QSbase/killguard.h>
#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/sync/criticalsection.h>
#include <QSbase/text/chartables.h>
#include <QSbase/text/guidos.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

using namespace qsbase::detail;

namespace {

constexpr std::size_t kSize = 16;
constexpr std::size_t kTextLength = 36;

// Where in the text without braces the digits of each byte stand.
constexpr std::array<std::uint8_t, kSize> kDigits = {0, 2, 4, 6, 9, 11, 14, 16, 19, 21, 24, 26, 28, 30, 32, 34};
constexpr std::array<std::uint8_t, 4> kDashes = {8, 13, 18, 23};

void WriteDigits(const unsigned char* data, char* text) {
  for (std::size_t i = 0; i < kSize; ++i) {
    std::memcpy(text + kDigits[i], &kHexPairs[std::size_t{2} * data[i]], 2);
  }
}

unsigned int DigitValue(char c) { return kHexValues[static_cast<unsigned char>(c)]; }

// False, with the bytes undefined, when a pair is none. A value that is no digit has bits that no digit has.
bool ReadDigits(const char* text, unsigned char* data) {
  unsigned int all = 0;
  for (std::size_t i = 0; i < kSize; ++i) {
    const unsigned int high = DigitValue(text[kDigits[i]]);
    const unsigned int low = DigitValue(text[kDigits[i] + 1]);
    all |= high | low;
    data[i] = static_cast<unsigned char>((high << 4U) | low);
  }
  return all < 16;
}

bool ReadText(std::string_view text, unsigned char* data) {
  return text.size() == kTextLength &&
         std::all_of(kDashes.begin(), kDashes.end(),
                     [text](std::size_t at) { return text[at] == '-' || DigitValue(text[at]) != kNoHexDigit; }) &&
         ReadDigits(text.data(), data);
}

bool Read(std::string_view text, bool withBraces, unsigned char* data) {
  text = Trimmed(text, kWhiteSpace);
  if (!withBraces) {
    return ReadText(text, data);
  }
  return text.size() == kTextLength + 2 && text.front() == '{' && text.back() == '}' &&
         ReadText(text.substr(1, kTextLength), data);
}

// Throws where a lock without a state would: the next call then makes a new one.
struct UsableLock {
  UsableLock() { const QsCriticalSectionAutoPtr guard(&section); }

  QsCriticalSection section;
};

QsCriticalSection& CreationLock() {
  static Immortal<UsableLock> lock;
  return lock.value.section;
}

bool CreateOneAtATime(unsigned char (&bytes)[kSize]) {
  const KillGuard untouched;  // a static variable is locked while it is made
  const QsCriticalSectionAutoPtr guard(&CreationLock());
  return CreateGuidBytes(bytes);
}

}  // namespace

QsGUID::QsGUID() noexcept : _data(), _valid(false) {}

void QsGUID::Create() {
  Clear();
  unsigned char bytes[kSize];
  if (!CreateOneAtATime(bytes)) {
    QsLogMsg(kLogError, "Could not create GUID");
    return;
  }
  std::copy_n(bytes, kSize, _data);
  _valid = true;
}

void QsGUID::Clear() noexcept { *this = QsGUID(); }

std::string QsGUID::ToString() const {
  if (!_valid) {
    throw ExBase("Uninitialized GUID");
  }
  std::string text("{00000000-0000-0000-0000-000000000000}", kTextLength + 2);
  WriteDigits(_data, text.data() + 1);
  return text;
}

std::string QsGUID::ToStringNoBraces() const {
  if (!_valid) {
    throw ExBase("Uninitialized GUID");
  }
  std::string text("00000000-0000-0000-0000-000000000000", kTextLength);
  WriteDigits(_data, text.data());
  return text;
}

void QsGUID::FromString(const std::string& text) {
  _valid = Read(text, true, _data);
  if (!_valid) {
    *this = QsGUID();
    throw ExBase("QsGUID::FromString: Given value is no UUID: '" + text + "'");
  }
}

void QsGUID::FromStringNoBraces(const std::string& text) {
  _valid = Read(text, false, _data);
  if (!_valid) {
    *this = QsGUID();
    throw ExBase("QsGUID::FromStringNoBraces: Given value is no UUID: '" + text + "'");
  }
}

bool QsGUID::IsValidGUID(const std::string& text, bool withBraces) {
  unsigned char scratch[kSize];
  return Read(text, withBraces, scratch);
}

const unsigned char* QsGUID::GetData() const noexcept { return _data; }

unsigned int QsGUID::GetDataSize() const noexcept { return sizeof(_data); }

bool QsGUID::IsValid() const noexcept { return _valid; }

bool QsGUID::IsNULLGuid() const noexcept {
  return _valid && std::all_of(_data, _data + kSize, [](unsigned char byte) { return byte == 0; });
}

bool QsGUID::operator==(const QsGUID& other) const noexcept {
  return _valid == other._valid && std::memcmp(_data, other._data, kSize) == 0;
}

bool QsGUID::operator<(const QsGUID& other) const noexcept {
  return _valid == other._valid && std::memcmp(_data, other._data, kSize) < 0;
}
