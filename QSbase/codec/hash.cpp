#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/hash.h>
#include <QSbase/codec/md5.h>
#include <QSbase/support/qsfile.h>
#include <QSbase/text/qsstring.h>
#include <zlib.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <new>

using namespace qsbase::detail;

namespace {

constexpr std::size_t kDigestSize = 16;
constexpr std::size_t kPadSize = 64;
constexpr unsigned int kFileBlock = 4096;
constexpr unsigned int kTextBlock = 8192;
constexpr unsigned char kInnerMask = 0x36;
constexpr unsigned char kOuterMask = 0x5C;

constexpr unsigned char kDefaultKey[kPadSize] = {
    0x9D, 0x3B, 0xE4, 0x71, 0x0F, 0xC8, 0x56, 0xAA, 0x12, 0xF7, 0x8E, 0x63, 0xD5, 0x2C, 0xB9, 0x40,
    0x77, 0x1E, 0xCB, 0x95, 0x68, 0x03, 0xDE, 0xA1, 0x4F, 0xF2, 0x39, 0x84, 0xBC, 0x5D, 0x16, 0xE9,
    0xC3, 0x7A, 0x2F, 0x91, 0x58, 0xED, 0x04, 0xB6, 0x6B, 0xD0, 0x9F, 0x35, 0xFA, 0x43, 0x88, 0x1C,
    0xA7, 0x52, 0x0D, 0xE1, 0x3C, 0x97, 0x74, 0xCE, 0x29, 0xB3, 0x66, 0xF8, 0x81, 0x1B, 0xDA, 0x4E};

constexpr unsigned char kPeLMKey[kPadSize] = {
    0x41, 0xDC, 0x87, 0x2A, 0xF5, 0x6E, 0x13, 0xB8, 0xC9, 0x54, 0xEF, 0x02, 0x9B, 0x76, 0x3D, 0xE0,
    0x8A, 0x25, 0xD1, 0x5F, 0xB4, 0x0E, 0xF3, 0x69, 0x1A, 0xA5, 0x7C, 0xC2, 0x37, 0xEB, 0x90, 0x4D,
    0xFE, 0x61, 0x18, 0xA3, 0xD7, 0x4C, 0x82, 0x3F, 0x05, 0xBA, 0x6D, 0xF0, 0x5B, 0x94, 0xC7, 0x2E,
    0x73, 0xE8, 0xAD, 0x1F, 0x46, 0xCA, 0x99, 0x30, 0xB1, 0x0A, 0xD4, 0x67, 0xFC, 0x23, 0x8D, 0x5E};

const unsigned char* AsBytes(const char* text) { return reinterpret_cast<const unsigned char*>(text); }

Md5State* StateIn(unsigned char* storage) { return std::launder(reinterpret_cast<Md5State*>(storage)); }

std::string HexOf(const unsigned char* digest) { return Bytes2Hex(digest, static_cast<int>(kDigestSize), false); }

void ZeroDigest(unsigned char* digest) { std::memset(digest, 0, kDigestSize); }

/// An MD5 state for one computation, wiped at its end.
class LocalMd5 {
 public:
  LocalMd5() { md5_init(&_state); }
  ~LocalMd5() { WipeMemory(&_state, sizeof(_state)); }
  LocalMd5(const LocalMd5&) = delete;
  LocalMd5& operator=(const LocalMd5&) = delete;

  void Append(const unsigned char* data, std::size_t length) { md5_append(&_state, data, length); }
  void Finish(unsigned char* digest) { md5_finish(&_state, digest); }

 private:
  Md5State _state;
};

void Md5Of(const unsigned char* data, std::size_t length, unsigned char* digest) {
  LocalMd5 md5;
  md5.Append(data, length);
  md5.Finish(digest);
}

/// The two padded keys of RFC 2104: the key, or the digest of a key longer than 64 bytes, filled up with zeros.
void MakePads(const unsigned char* key, std::size_t keyLength, unsigned char inner[kPadSize],
              unsigned char outer[kPadSize]) {
  unsigned char padded[kPadSize] = {};
  if (keyLength > kPadSize) {
    Md5Of(key, keyLength, padded);
  } else if (keyLength != 0) {
    std::memcpy(padded, key, keyLength);
  }
  for (std::size_t i = 0; i < kPadSize; ++i) {
    inner[i] = padded[i] ^ kInnerMask;
    outer[i] = padded[i] ^ kOuterMask;
  }
  WipeMemory(padded, sizeof(padded));
}

/// The padded keys of one computation, wiped at its end.
struct Pads {
  Pads(const unsigned char* key, std::size_t keyLength) { MakePads(key, keyLength, inner, outer); }
  ~Pads() { WipeMemory(this, sizeof(*this)); }
  Pads(const Pads&) = delete;
  Pads& operator=(const Pads&) = delete;

  unsigned char inner[kPadSize];
  unsigned char outer[kPadSize];
};

std::size_t LengthOrZero(const void* data, int length) {
  return data == nullptr || length <= 0 ? 0 : static_cast<std::size_t>(length);
}

/// Moves forward from the start in steps that a `long` holds.
bool SeekFromStart(const QsFile& file, unsigned int offset) {
  std::uint64_t left = offset;
  int origin = SEEK_SET;
  while (left != 0) {
    const std::uint64_t step = std::min(left, static_cast<std::uint64_t>(LONG_MAX));
    if (file.Seek(static_cast<long>(step), origin) != 0) {
      return false;
    }
    left -= step;
    origin = SEEK_CUR;
  }
  return true;
}

/// Makes CR LF of a text that comes in blocks a LF.
class LineBreakFilter {
 public:
  /// The block's text: at most one byte more than the block, valid until the next call.
  const unsigned char* Filter(const unsigned char* block, std::size_t length, std::size_t& filtered) {
    filtered = 0;
    for (std::size_t i = 0; i < length; ++i) {
      if (_heldReturn && block[i] != '\n') {
        _text[filtered++] = '\r';
      }
      _heldReturn = block[i] == '\r';
      if (!_heldReturn) {
        _text[filtered++] = block[i];
      }
    }
    return _text;
  }

  bool HoldsReturn() const { return _heldReturn; }

 private:
  bool _heldReturn = false;
  unsigned char _text[kTextBlock + 1];
};

void UpdateWithText(CHMACMD5& hmac, const QsFile& file) {
  unsigned char block[kTextBlock];
  LineBreakFilter filter;
  for (unsigned int read = 0; (read = file.Read(block, 1, kTextBlock)) != 0;) {
#ifdef _WIN32
    // The C library's text mode has done it already, and has ended the text where it ends one.
    hmac.Update(block, static_cast<int>(read));
#else
    std::size_t filtered = 0;
    const unsigned char* text = filter.Filter(block, read, filtered);
    hmac.Update(text, static_cast<int>(filtered));
#endif
  }
  if (filter.HoldsReturn()) {
    hmac.Update(AsBytes("\r"), 1);
  }
}

std::string LowerHexOf(const unsigned char* digest) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (std::size_t i = 0; i < kDigestSize; ++i) {
    hex += kDigits[digest[i] >> 4];
    hex += kDigits[digest[i] & 15];
  }
  return hex;
}

bool IsHexOfLength(const char* text, unsigned int length) {
  return text != nullptr && QsIsValidHex(text, length) && text[length] == '\0';
}

}  // namespace

QsMD5::QsMD5() : _state{} { new (_state) Md5State{}; }

void QsMD5::Init() { md5_init(StateIn(_state)); }

void QsMD5::Update(const unsigned char* data, unsigned int length) {
  if (data != nullptr && length != 0) {
    md5_append(StateIn(_state), data, length);
  }
}

void QsMD5::Final(unsigned char digest[16]) {
  md5_finish(StateIn(_state), digest);
  Clear();
}

void QsMD5::Clear() { WipeMemory(_state, sizeof(_state)); }

int QsMD5::Calculate(const char* data, unsigned int length, unsigned char digest[16]) {
  Init();
  Update(AsBytes(data), length);
  Final(digest);
  return 0;
}

int QsMD5::Calculate(const char* path, unsigned char digest[16], unsigned int offset) {
  ZeroDigest(digest);
  if (path == nullptr || *path == '\0') {
    return -1;
  }
  QsFile file;
  if (!file.Open(path, "rb")) {
    return -2;
  }
  if (!SeekFromStart(file, offset)) {
    return -3;
  }
  Init();
  unsigned char block[kFileBlock];
  for (unsigned int read = 0; (read = file.Read(block, 1, kFileBlock)) != 0;) {
    Update(block, read);
  }
  if (file.IsError()) {
    Clear();
    return -2;
  }
  Final(digest);
  return 0;
}

int QsMD5::Calculate(const char* path, unsigned char digest[16]) { return Calculate(path, digest, 0u); }

int QsMD5::Calculate(const char* path, std::string& hex, unsigned int offset) {
  unsigned char digest[kDigestSize];
  const int status = Calculate(path, digest, offset);
  if (status == 0) {
    hex = HexOf(digest);
  }
  return status;
}

int QsMD5::Calculate(const char* path, std::string& hex) { return Calculate(path, hex, 0u); }

std::string CalcMD5(const char* path) { return CalcMD5(path, 0u); }

std::string CalcMD5(const char* path, unsigned int offset) {
  std::string hex;
  CalcMD5(path, hex, offset);
  return hex;
}

int CalcMD5(const char* path, std::string& hex) { return CalcMD5(path, hex, 0u); }

int CalcMD5(const char* path, std::string& hex, unsigned int offset) { return QsMD5().Calculate(path, hex, offset); }

void QsCalcMD5(const char* data, unsigned int length, unsigned char* digest) {
  if (data != nullptr && length != 0 && digest != nullptr) {
    Md5Of(AsBytes(data), length, digest);
  }
}

std::string QsCalcMD5(const char* data, unsigned int length) {
  if (data == nullptr) {
    return std::string();
  }
  unsigned char digest[kDigestSize];
  Md5Of(AsBytes(data), length, digest);
  return HexOf(digest);
}

CHMACMD5::CHMACMD5() : _digest{}, _innerKey{}, _outerKey{}, _initialised(false) {}

void CHMACMD5::Init(const unsigned char* key, int keyLength) {
  MakePads(key, LengthOrZero(key, keyLength), _innerKey, _outerKey);
  _md5.Init();
  _md5.Update(_innerKey, sizeof(_innerKey));
  _initialised = true;
}

void CHMACMD5::Init() { Init(kDefaultKey, sizeof(kDefaultKey)); }

void CHMACMD5::Update(const unsigned char* data, int length) {
  _md5.Update(data, static_cast<unsigned int>(LengthOrZero(data, length)));
}

void CHMACMD5::Final() {
  if (!_initialised) {
    return;
  }
  _md5.Final(_digest);
  _md5.Init();
  _md5.Update(_outerKey, sizeof(_outerKey));
  _md5.Update(_digest, sizeof(_digest));
  _md5.Final(_digest);
  _initialised = false;
}

void CHMACMD5::CopyDigest(unsigned char digest[16]) const { std::memcpy(digest, _digest, sizeof(_digest)); }

void CHMACMD5::Calculate(const unsigned char* data, int length, const unsigned char* key, int keyLength) {
  Init(key, keyLength);
  Update(data, length);
  Final();
}

void CHMACMD5::Calculate(const unsigned char* data, int length) {
  Calculate(data, length, kDefaultKey, sizeof(kDefaultKey));
}

void hmac_md5(const unsigned char* text, int textLength, const unsigned char* key, int keyLength,
              unsigned char digest[16]) {
  if (digest == nullptr) {
    return;
  }
  ZeroDigest(digest);
  if (text == nullptr || textLength < 0 || key == nullptr || keyLength <= 0) {
    return;
  }
  const Pads pads(key, static_cast<std::size_t>(keyLength));
  LocalMd5 inner;
  inner.Append(pads.inner, kPadSize);
  inner.Append(text, static_cast<std::size_t>(textLength));
  inner.Finish(digest);
  LocalMd5 outer;
  outer.Append(pads.outer, kPadSize);
  outer.Append(digest, kDigestSize);
  outer.Finish(digest);
}

void QsCalcHMAC_MD5(const char* data, unsigned int length, unsigned char* keyBuffer) {
  if (data != nullptr && length != 0 && keyBuffer != nullptr) {
    // Kept: the digest stays in the local object; callers rely on the key buffer being left alone.
    CHMACMD5 hmac;
    hmac.Calculate(AsBytes(data), static_cast<int>(std::min<unsigned int>(length, INT_MAX)), keyBuffer, kPadSize);
  }
}

std::string QsCalcHMAC_MD5(const char* data, unsigned int length) {
  if (data == nullptr) {
    return std::string();
  }
  unsigned char keyBuffer[kPadSize] = {};
  QsCalcHMAC_MD5(data, length, keyBuffer);
  return HexOf(keyBuffer);
}

int CalcHMAC_MD5(const char* path, std::string& hex) {
  QsFile file;
  if (path == nullptr || *path == '\0' || !file.Open(path, "r")) {
    return -1;
  }
  CHMACMD5 hmac;
  hmac.Init();
  UpdateWithText(hmac, file);
  if (file.IsError()) {
    return -1;
  }
  hmac.Final();
  unsigned char digest[kDigestSize];
  hmac.CopyDigest(digest);
  hex = LowerHexOf(digest);
  return 0;
}

std::string CalcHMAC_MD5(const char* path) {
  std::string hex;
  CalcHMAC_MD5(path, hex);
  return hex;
}

void QsCalcPeLM_HMAC(const char* text, unsigned char digest[16]) {
  if (digest == nullptr) {
    return;
  }
  ZeroDigest(digest);
  if (text != nullptr && *text != '\0') {
    KeyedMd5(text, kPeLMKey, sizeof(kPeLMKey), digest);
  }
}

std::string QsCalcPeLM_HMAC(const char* text) {
  if (text == nullptr) {
    return std::string();
  }
  unsigned char digest[kDigestSize];
  QsCalcPeLM_HMAC(text, digest);
  return HexOf(digest);
}

void qsbase::detail::KeyedMd5(const char* text, const unsigned char* key, std::size_t keyLength,
                              unsigned char digest[16]) {
  const bool usable = key != nullptr && keyLength == kPadSize;
  const Pads pads(usable ? key : kDefaultKey, kPadSize);
  const unsigned char zero = 0;
  LocalMd5 inner;
  inner.Append(pads.inner, kPadSize);
  inner.Append(AsBytes(text), std::strlen(text) + 1);
  inner.Finish(digest);
  LocalMd5 outer;
  outer.Append(pads.outer, kPadSize);
  outer.Append(digest, kDigestSize);
  outer.Append(&zero, 1);
  outer.Finish(digest);
}

std::uint32_t QsCalcCRC32(const char* data, unsigned int length) {
  const uLong start = crc32(0, nullptr, 0);
  return data == nullptr ? 0 : static_cast<std::uint32_t>(crc32(start, AsBytes(data), length));
}

std::uint32_t QsTextToCRC32(const char* text) {
  if (!QsIsValidCRC32(text)) {
    return 0;
  }
  std::uint32_t value = 0;
  for (const char* pair = text; *pair != '\0'; pair += 2) {
    value = value << 8 | CEncodeDecode::GetHexValue(AsBytes(pair)[0], AsBytes(pair)[1]);
  }
  return value;
}

bool QsIsValidHex(const char* text, unsigned int length) {
  if (text == nullptr) {
    return false;
  }
  for (unsigned int i = 0; i < length; ++i) {
    if (!CEncodeDecode::IsHexChar(AsBytes(text)[i])) {
      return false;
    }
  }
  return !CEncodeDecode::IsHexChar(AsBytes(text)[length]);
}

bool QsIsValidMD5(const char* text) { return IsHexOfLength(text, 32); }

bool QsIsValidSHA1(const char* text) { return IsHexOfLength(text, 40); }

bool QsIsValidCRC32(const char* text) { return IsHexOfLength(text, 8); }
