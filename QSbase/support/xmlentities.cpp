#include <QSbase/support/xmlentities.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include <libxml/tree.h>

namespace qsbase::detail {

namespace {

enum Kind : unsigned char { kCopied, kDropped, kNamed, kCarriageReturn, kAbove127 };

constexpr std::array<Kind, 256> MakeKinds() {
  std::array<Kind, 256> kinds{};
  for (std::size_t c = 0; c < kinds.size(); ++c) {
    kinds[c] = c < 32 ? kDropped : c < 128 ? kCopied : kAbove127;
  }
  kinds['\t'] = kinds['\n'] = kCopied;
  kinds['\r'] = kCarriageReturn;
  kinds['<'] = kinds['>'] = kinds['&'] = kinds['\''] = kinds['"'] = kNamed;
  return kinds;
}

constexpr std::array<Kind, 256> kKinds = MakeKinds();

constexpr std::string_view NamedEntity(unsigned char c) {
  switch (c) {
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '&':
      return "&amp;";
    case '\'':
      return "&apos;";
    default:
      return "&quot;";
  }
}

/// A buffer of libxml2's allocator that doubles.
class Output {
 public:
  Output() : _begin(static_cast<unsigned char*>(xmlMalloc(kFirstSize))), _size(kFirstSize) {}
  ~Output() {
    if (_begin != nullptr) {
      xmlFree(_begin);
    }
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// Makes room for so many bytes and what one character becomes at most. False without memory.
  bool Reserve(std::size_t bytes) {
    if (_begin == nullptr) {
      return false;
    }
    if (_size - _used >= kReserve && _size - _used - kReserve >= bytes) {
      return true;
    }
    return Grow(bytes);
  }

  void Add(std::string_view text) {
    std::memcpy(_begin + _used, text.data(), text.size());
    _used += text.size();
  }
  void Add(unsigned char byte) { _begin[_used++] = byte; }

  /// Hands the buffer over, with a zero behind what was added.
  unsigned char* Release(std::size_t& length) {
    _begin[_used] = 0;
    length = _used;
    unsigned char* const result = _begin;
    _begin = nullptr;
    return result;
  }

 private:
  static constexpr std::size_t kFirstSize = 1000;
  static constexpr std::size_t kReserve = 100;

  bool Grow(std::size_t bytes) {
    constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max() / 2;
    std::size_t size = _size;
    while (size - _used < kReserve || size - _used - kReserve < bytes) {
      if (size > kMost) {
        return false;
      }
      size *= 2;
    }
    void* const larger = xmlRealloc(_begin, size);
    if (larger == nullptr) {
      return false;
    }
    _begin = static_cast<unsigned char*>(larger);
    _size = size;
    return true;
  }

  unsigned char* _begin;
  std::size_t _size;
  std::size_t _used = 0;
};

struct Character {
  std::uint32_t code;
  std::size_t length;  // 0: the first byte begins no character
};

bool IsXmlCharacter(std::uint32_t code) {
  return code == 9 || code == 10 || code == 13 || (code >= 0x20 && code < 0xD800) ||
         (code >= 0xE000 && code < 0xFFFE) || (code >= 0x10000 && code <= 0x10FFFF);
}

/// The number of bytes that the first one announces; 0 if it announces none.
std::size_t SequenceLength(unsigned char lead) {
  if (lead < 0xC0 || lead >= 0xF8) {
    return 0;
  }
  return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

/// Longer forms than needed are taken, too.
Character ReadCharacter(const unsigned char* at, std::size_t left) {
  const std::size_t length = SequenceLength(*at);
  if (length == 0 || length > left) {
    return {0, 0};
  }
  std::uint32_t code = *at & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if ((at[i] & 0xC0U) != 0x80) {
      return {0, 0};
    }
    code = code << 6 | (at[i] & 0x3FU);
  }
  return {code, IsXmlCharacter(code) ? length : 0};
}

void AddReference(Output& out, std::uint32_t value, bool hexadecimal) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  const std::uint32_t base = hexadecimal ? 16 : 10;
  char text[16];
  char* const end = text + sizeof text;
  char* begin = end;
  *--begin = ';';
  do {
    *--begin = kDigits[value % base];
    value /= base;
  } while (value != 0);
  if (hexadecimal) {
    *--begin = 'x';
  }
  *--begin = '#';
  *--begin = '&';
  out.Add(std::string_view(begin, static_cast<std::size_t>(end - begin)));
}

/// Encodes a character above 127, or the one byte that begins none. Returns how many bytes it has.
std::size_t AddAbove127(Output& out, const unsigned char* at, std::size_t left, xmlDoc* document, bool plain) {
  if (document != nullptr && document->encoding != nullptr) {
    out.Add(*at);
    return 1;
  }
  const Character character = ReadCharacter(at, left);
  if (character.length != 0) {
    AddReference(out, character.code, !plain);
    return character.length;
  }
  if (document != nullptr) {
    document->encoding = xmlStrdup(reinterpret_cast<const xmlChar*>("ISO-8859-1"));
  }
  AddReference(out, *at, false);
  return 1;
}

void AddCarriageReturn(Output& out, const xmlDoc* document) {
  if (document != nullptr && document->type == XML_HTML_DOCUMENT_NODE) {
    out.Add('\r');
  } else {
    AddReference(out, '\r', false);
  }
}

/// Encodes what is not simply copied. Returns how many bytes of the text that is.
std::size_t AddSpecial(Output& out, const unsigned char* at, std::size_t left, xmlDoc* document, bool plain) {
  switch (kKinds[*at]) {
    case kAbove127:
      return AddAbove127(out, at, left, document, plain);
    case kCarriageReturn:
      AddCarriageReturn(out, document);
      break;
    case kNamed:
      out.Add(*at == '\'' && plain ? std::string_view("'") : NamedEntity(*at));
      break;
    default:
      break;
  }
  return 1;
}

}  // namespace

unsigned char* EncodeEntitiesBuffer(std::string_view input, xmlDoc* document, bool plain, std::size_t& length) {
  Output out;
  const auto* at = reinterpret_cast<const unsigned char*>(input.data());
  const unsigned char* const end = at + input.size();
  while (at != end) {
    const unsigned char* const special = std::find_if(at, end, [](unsigned char c) { return kKinds[c] != kCopied; });
    const auto run = static_cast<std::size_t>(special - at);
    if (!out.Reserve(run)) {
      return nullptr;
    }
    out.Add(std::string_view(reinterpret_cast<const char*>(at), run));
    at = special;
    if (at != end) {
      at += AddSpecial(out, at, static_cast<std::size_t>(end - at), document, plain);
    }
  }
  return out.Reserve(0) ? out.Release(length) : nullptr;
}

namespace {

struct SpecialCharacter {
  std::string_view entity;
  char character;
};

constexpr SpecialCharacter kSpecialCharacters[] = {
    {"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};

/// Upper-case letters of ASCII and nothing else become what stands in an entity.
bool BeginsWith(std::string_view text, std::string_view entity) {
  return text.size() >= entity.size() && std::equal(entity.begin(), entity.end(), text.begin(), [](char e, char c) {
           return e == c || (c >= 'A' && c <= 'Z' && e == c + ('a' - 'A'));
         });
}

const SpecialCharacter* FindSpecialCharacter(std::string_view text) {
  const auto* const found =
      std::find_if(std::begin(kSpecialCharacters), std::end(kSpecialCharacters),
                   [text](const SpecialCharacter& special) { return BeginsWith(text, special.entity); });
  return found != std::end(kSpecialCharacters) ? found : nullptr;
}

}  // namespace

}  // namespace qsbase::detail

std::string QsXmlDecodeSpecialChars(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  std::size_t at = 0;
  for (std::size_t found = text.find('&'); found != std::string::npos; found = text.find('&', at)) {
    out.append(text, at, found - at);
    const auto* const special = qsbase::detail::FindSpecialCharacter(std::string_view(text).substr(found));
    out.push_back(special != nullptr ? special->character : '&');
    at = found + (special != nullptr ? special->entity.size() : 1);
  }
  return out.append(text, at, std::string::npos);
}

std::string QsEncodeEntities(const std::string& text, bool plain) {
  std::size_t length = 0;
  unsigned char* encoded = qsbase::detail::EncodeEntitiesBuffer(text, nullptr, plain, length);
  const XmlCharAutoPtr guard(encoded);
  return encoded != nullptr ? std::string(reinterpret_cast<const char*>(encoded), length) : std::string();
}
