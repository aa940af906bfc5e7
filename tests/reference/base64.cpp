#include <reference/base64.h>

namespace qsbase::reference {

namespace {

const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The four characters of one to three bytes.
std::string Group(std::string_view bytes) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    bits = bits * 256 + (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0u);
  }
  std::string text;
  for (std::uint32_t divisor : {262144u, 4096u, 64u, 1u}) {
    text += kAlphabet[bits / divisor % 64];
  }
  return text.substr(0, bytes.size() + 1) + std::string(3 - bytes.size(), '=');
}

/// The bytes of up to four values of six bits: one less than there are values.
std::string Bytes(const std::string& values) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    bits = bits * 64 + (i < values.size() ? static_cast<unsigned char>(values[i]) : 0u);
  }
  const std::string all = {static_cast<char>(bits / 65536), static_cast<char>(bits / 256 % 256),
                           static_cast<char>(bits % 256)};
  return values.empty() ? "" : all.substr(0, values.size() - 1);
}

/// Reads until four values are there, or "=" or the end of the text comes.
std::string NextValues(std::string_view text, Result& result) {
  std::string values;
  while (values.size() < 4 && result.parsed < text.size()) {
    const char c = text[result.parsed];
    ++result.parsed;
    if (c == '=') {
      break;
    }
    const std::size_t value = kAlphabet.find(c);
    if (value != std::string::npos) {
      values += static_cast<char>(value);
    } else if (c != '\r' && c != '\n') {
      ++result.illegal;
    }
  }
  return values;
}

}  // namespace

std::string Base64Encode(std::string_view data, std::uint32_t lineLength) {
  std::string text;
  std::uint32_t groups = 0;
  for (std::size_t i = 0; i < data.size(); i += 3) {
    text += Group(data.substr(i, 3));
    ++groups;
    const bool isComplete = data.size() - i >= 3;
    if (isComplete && lineLength >= 4 && groups % (lineLength / 4) == 0) {
      text += "\r\n";
    }
  }
  return text;
}

Result Base64Decode(std::string_view text) {
  Result result;
  std::string values;
  do {
    values = NextValues(text, result);
    result.data += Bytes(values);
  } while (values.size() == 4);
  return result;
}

}  // namespace qsbase::reference
