#include <reference/binhex.h>

#include <algorithm>

namespace qsbase::reference {

namespace {

const std::string kDigits = "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";
const std::string kMarker = "(This file must be converted with BinHex";
constexpr char kRunMark = '\x90';

/// Ends a decoding with a status.
struct Stop {
  int status;
};

class Reader {
 public:
  explicit Reader(std::string_view text) : _text(text) {}

  /// Moves behind the colon that opens the data.
  void SkipToData() {
    Skip(" \t\n\v\f\r");
    if (_text.substr(_position, kMarker.size()) != kMarker) {
      throw Stop{-7};
    }
    _position = std::min(_text.find_first_of("\r\n", _position), _text.size());
    Skip("\r\n \t");
    if (_position == _text.size() || _text[_position] != ':') {
      throw Stop{-7};
    }
    ++_position;
  }

  /// Moves to the colon that closes the data.
  void ExpectEnd() {
    Skip(" \t\n\v\f\r!");
    if (_position == _text.size() || _text[_position] != ':') {
      throw Stop{-9};
    }
  }

  bool IsAtEnd() const { return _position == _text.size(); }

  /// The next byte of the stream, runs expanded.
  unsigned int Byte() {
    while (_repeats == 0) {
      const unsigned int byte = PackedByte();
      const unsigned int count = byte == 0x90 ? PackedByte() : 0;
      if (count == 0) {
        _last = byte;
        return byte;
      }
      _repeats = count - 1;
    }
    --_repeats;
    return _last;
  }

  std::uint32_t Number(int bytes) {
    std::uint32_t value = 0;
    for (int i = 0; i < bytes; ++i) {
      value = value * 256 + Byte();
    }
    return value;
  }

 private:
  void Skip(const char* set) { _position = std::min(_text.find_first_not_of(set, _position), _text.size()); }

  /// The next byte of the stream as it stands in the text.
  unsigned int PackedByte() {
    if (_bitCount == 0) {
      _bits = Digit();
      _bitCount = 6;
    }
    _bits = _bits * 64 + Digit();
    _bitCount -= 2;  // six more, and eight are taken
    const unsigned int byte = _bits >> _bitCount;
    _bits &= (1u << _bitCount) - 1;
    return byte;
  }

  unsigned int Digit() {
    if (_position == _text.size()) {
      throw Stop{-10};
    }
    Skip("\t\n\r ");
    if (_position == _text.size()) {
      throw Stop{-8};
    }
    const std::size_t value = kDigits.find(_text[_position]);
    if (value == std::string::npos) {
      throw Stop{-8};
    }
    ++_position;
    return static_cast<unsigned int>(value);
  }

  std::string_view _text;
  std::size_t _position = 0;
  unsigned int _bits = 0;
  unsigned int _bitCount = 0;
  unsigned int _repeats = 0;
  unsigned int _last = 0;
};

void ReadLastCrc(Reader& reader) {
  try {
    reader.Number(2);
  } catch (const Stop& stop) {
    throw Stop{reader.IsAtEnd() ? -9 : stop.status};
  }
}

void DecodeFile(Reader& reader, bool headerOnly, BinHexFile& file) {
  reader.SkipToData();
  for (std::uint32_t left = reader.Number(1); left > 0; --left) {
    file.name += static_cast<char>(reader.Byte());
  }
  reader.Number(1);  // version
  file.type = reader.Number(4);
  file.creator = reader.Number(4);
  file.flags = reader.Number(2);
  file.dataSize = reader.Number(4);
  const std::uint32_t resourceSize = reader.Number(4);
  reader.Number(2);  // CRC
  file.isHeaderWhole = true;
  if (headerOnly) {
    return;
  }
  for (std::uint32_t left = file.dataSize; left > 0; --left) {
    file.data += static_cast<char>(reader.Byte());
  }
  reader.Number(2);  // CRC
  for (std::uint32_t left = resourceSize; left > 0; --left) {
    reader.Byte();
  }
  ReadLastCrc(reader);
  reader.ExpectEnd();
}

std::string BigEndian(std::uint32_t value, int bytes) {
  std::string text;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
    text += static_cast<char>(value >> shift & 255u);
  }
  return text;
}

}  // namespace

BinHexFile BinHexDecode(std::string_view text, bool headerOnly) {
  BinHexFile file;
  if (text.empty()) {
    return file;
  }
  Reader reader(text);
  try {
    DecodeFile(reader, headerOnly, file);
  } catch (const Stop& stop) {
    file.status = stop.status;
    file.data.clear();
  }
  return file;
}

std::string BinHexText(std::string_view stream, std::size_t columns) {
  std::string text = kMarker + " 4.0)\r\n\r\n:";
  std::uint32_t bits = 0;
  std::size_t column = 1;
  for (std::size_t bit = 0; bit < stream.size() * 8; ++bit) {
    bits = bits * 2 + (static_cast<unsigned char>(stream[bit / 8]) >> (7 - bit % 8) & 1u);
    if (bit + 1 == stream.size() * 8) {
      bits <<= 5 - bit % 6;
    } else if (bit % 6 != 5) {
      continue;
    }
    text += kDigits[bits];
    bits = 0;
    if (++column == columns) {
      text += "\r\n";
      column = 0;
    }
  }
  return text + ":";
}

std::string BinHexRuns(std::string_view stream, std::size_t shortest) {
  std::string coded;
  for (std::size_t i = 0; i < stream.size();) {
    std::size_t run = 1;
    while (i + run < stream.size() && stream[i + run] == stream[i] && run < 255) {
      ++run;
    }
    run = run > shortest ? run : 1;
    coded += stream[i];
    coded += stream[i] == kRunMark ? std::string(1, '\0') : "";
    coded += run > 1 ? std::string{kRunMark, static_cast<char>(run)} : "";
    i += run;
  }
  return coded;
}

std::string BinHexStream(const BinHexFile& file, std::string_view resource) {
  return BigEndian(static_cast<std::uint32_t>(file.name.size()), 1) + file.name + BigEndian(0, 1) +
         BigEndian(file.type, 4) + BigEndian(file.creator, 4) + BigEndian(file.flags, 2) +
         BigEndian(static_cast<std::uint32_t>(file.data.size()), 4) +
         BigEndian(static_cast<std::uint32_t>(resource.size()), 4) + "hc" + file.data + "dc" + std::string(resource) +
         "rc";
}

}  // namespace qsbase::reference
