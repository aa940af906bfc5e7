#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/hash.h>
#include <QSbase/text/qsstring.h>

#include <algorithm>
#include <cstdint>

#include "../inputs.h"
#include "coders.h"

namespace qsbase::benchmarks {
namespace {

template <int Flags>
std::string Coded(const std::string& data) {
  CEncodeDecode coder(75, 76);
  std::string text;
  coder.Encode(data, text, Flags);
  return text;
}

/// One line: longer than any text here.
std::string Base64InOneLine(const std::string& data) {
  CEncodeDecode coder(75, 0xFFFFFFFC);
  std::string text;
  coder.EncodeBase64(data, text, 0);
  return text;
}

std::string Same(const std::string& data) { return data; }

std::string Md5(const std::string& data) {
  unsigned char digest[16];
  QsCalcMD5(data.data(), static_cast<unsigned int>(data.size()), digest);
  return {reinterpret_cast<const char*>(digest), sizeof digest};
}

std::string Crc32(const std::string& data) {
  const std::uint32_t crc = QsCalcCRC32(data.data(), static_cast<unsigned int>(data.size()));
  return {reinterpret_cast<const char*>(&crc), sizeof crc};
}

// BinHex 4.0, which the library only reads.

void AppendBig(std::string& text, std::uint64_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) {
    text += static_cast<char>(value >> (8 * i));
  }
}

void AppendWithCrc(std::string& all, const std::string& part) {
  std::uint32_t crc = 0;
  for (const char byte : part) {
    crc ^= static_cast<std::uint32_t>(static_cast<unsigned char>(byte)) << 8;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc << 1 ^ ((crc & 0x8000) != 0 ? 0x1021U : 0U)) & 0xFFFF;
    }
  }
  all += part;
  AppendBig(all, crc, 2);
}

std::string RunLengthCoded(const std::string& bytes) {
  constexpr char kMark = '\x90';
  std::string coded;
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t limit = std::min(bytes.size(), at + 255);
    std::size_t end = at + 1;
    while (end < limit && bytes[end] == bytes[at]) {
      ++end;
    }
    coded += bytes[at];
    if (bytes[at] == kMark) {
      coded += '\0';
    }
    if (end - at > 3) {
      coded += kMark;
      coded += static_cast<char>(end - at);
      at = end;
    } else {
      ++at;
    }
  }
  return coded;
}

std::string BinHex(const std::string& data) {
  std::string header("\3out\0BINAhexb\0\0", 15);
  AppendBig(header, data.size(), 4);
  AppendBig(header, 0, 4);
  std::string forks;
  AppendWithCrc(forks, header);
  AppendWithCrc(forks, data);
  AppendWithCrc(forks, "");
  const std::string coded = RunLengthCoded(forks);

  constexpr std::string_view kDigits = "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";
  std::string text = "(This file must be converted with BinHex 4.0)\n\n:";
  std::size_t column = 1;
  const auto append = [&](char c) {
    text += c;
    if (++column == 64) {
      text += '\n';
      column = 0;
    }
  };
  for (std::size_t at = 0; at < coded.size(); at += 3) {
    const std::size_t count = std::min<std::size_t>(3, coded.size() - at);
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8 | (i < count ? static_cast<unsigned char>(coded[at + i]) : 0U);
    }
    for (std::size_t i = 0; i <= count; ++i) {
      append(kDigits[group >> (18 - 6 * i) & 63]);
    }
  }
  append(':');
  return text + "\n";
}

std::string Repeated(std::string piece, std::size_t size) {
  std::string data = std::move(piece);
  while (data.size() < size) {
    data.append(data, 0, std::min(data.size(), size - data.size()));
  }
  return data;
}

}  // namespace

std::string MakeData(Data kind, std::size_t size) {
  const std::size_t piece = std::min(size, kInputSize);
  std::string data = Repeated(kind == Data::kRandom ? RandomBytes(piece) : MailText(piece), size);
  if (kind == Data::kAscii) {
    std::replace_if(
        data.begin(), data.end(), [](char c) { return (c & 0x80) != 0; }, 'U');
  }
  data.back() = '.';  // a "=" and two digits that nothing follows are no quoted-printable byte
  return data;
}

const std::vector<Job>& Jobs() {
  static const std::vector<Job> jobs = {
      {"memcpy", Data::kRandom, &Same, false},
      {"base64-encode", Data::kRandom, &Coded<0x1>, false},
      {"base64-decode", Data::kRandom, &Coded<0x1>, true},
      {"base64-encode-unbroken", Data::kRandom, &Base64InOneLine, false},
      {"base64-decode-unbroken", Data::kRandom, &Base64InOneLine, true},
      {"yenc-encode", Data::kRandom, &Coded<0x800>, false},
      {"yenc-decode", Data::kRandom, &Coded<0x800>, true},
      {"uu-encode", Data::kRandom, &Coded<0x4>, false},
      {"uu-decode", Data::kRandom, &Coded<0x4>, true},
      {"xx-encode", Data::kRandom, &Coded<0xC>, false},
      {"xx-decode", Data::kRandom, &Coded<0xC>, true},
      {"qp-encode-text", Data::kMail, &Coded<0x202>, false},
      {"qp-decode-text", Data::kMail, &Coded<0x202>, true},
      {"qp-encode-random", Data::kRandom, &Coded<0x2>, false},
      {"qp-decode-random", Data::kRandom, &Coded<0x2>, true},
      {"binhex-decode", Data::kRandom, &BinHex, true},
      {"hex-encode", Data::kRandom, &String2Hex, false},
      {"hex-decode", Data::kRandom, &String2Hex, true},
      {"lower-case", Data::kAscii, &QsString::ToLower, false},
      {"md5", Data::kRandom, &Md5, false},
      {"crc32", Data::kRandom, &Crc32, false},
  };
  return jobs;
}

}  // namespace qsbase::benchmarks
