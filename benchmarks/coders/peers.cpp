#include <Poco/Base64Decoder.h>
#include <Poco/Base64Encoder.h>
#include <Poco/MemoryStream.h>
#include <glib.h>
#include <gmime/gmime-encodings.h>
#include <modp_b64.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "coders.h"
#ifdef QSBASE_BENCHMARK_YENCODE
#include "yencode.h"
#endif

namespace qsbase::benchmarks {
namespace {

void TakeFromGlib(Output& output, void* data, std::size_t length) {
  output.Take(static_cast<char*>(data), length, [](char* memory) { g_free(memory); });
}

// OpenSSL

using EncodeContext = std::unique_ptr<EVP_ENCODE_CTX, decltype(&EVP_ENCODE_CTX_free)>;

void OpenSslEncode(std::string_view input, Output& output) {
  const EncodeContext context(EVP_ENCODE_CTX_new(), &EVP_ENCODE_CTX_free);
  int written = 0;
  int rest = 0;
  EVP_EncodeInit(context.get());
  EVP_EncodeUpdate(context.get(), output.Bytes(), &written, Bytes(input), static_cast<int>(input.size()));
  EVP_EncodeFinal(context.get(), output.Bytes() + written, &rest);
  output.SetLength(static_cast<std::size_t>(written + rest));
}

void OpenSslEncodeUnbroken(std::string_view input, Output& output) {
  const int written = EVP_EncodeBlock(output.Bytes(), Bytes(input), static_cast<int>(input.size()));
  output.SetLength(static_cast<std::size_t>(written));
}

void OpenSslDecode(std::string_view input, Output& output) {
  const EncodeContext context(EVP_ENCODE_CTX_new(), &EVP_ENCODE_CTX_free);
  int written = 0;
  int rest = 0;
  EVP_DecodeInit(context.get());
  EVP_DecodeUpdate(context.get(), output.Bytes(), &written, Bytes(input), static_cast<int>(input.size()));
  EVP_DecodeFinal(context.get(), output.Bytes() + written, &rest);
  output.SetLength(static_cast<std::size_t>(written + rest));
}

void OpenSslToHex(std::string_view input, Output& output) {
  std::size_t written = 0;
  OPENSSL_buf2hexstr_ex(output.Room(), output.RoomSize(), &written, Bytes(input), input.size(), '\0');
  output.SetLength(input.size() * 2);
}

void OpenSslFromHex(std::string_view input, Output& output) {
  std::size_t written = 0;
  OPENSSL_hexstr2buf_ex(output.Bytes(), output.RoomSize(), &written, input.data(), '\0');
  output.SetLength(written);
}

void OpenSslMd5(std::string_view input, Output& output) {
  unsigned int length = 0;
  EVP_Digest(input.data(), input.size(), output.Bytes(), &length, EVP_md5(), nullptr);
  output.SetLength(length);
}

// GLib and GMime

void GlibEncode(std::string_view input, Output& output) {
  gint state = 0;
  gint save = 0;
  gsize written = g_base64_encode_step(Bytes(input), input.size(), TRUE, output.Room(), &state, &save);
  written += g_base64_encode_close(TRUE, output.Room() + written, &state, &save);
  output.SetLength(written);
}

void GlibEncodeUnbroken(std::string_view input, Output& output) {
  gint state = 0;
  gint save = 0;
  gsize written = g_base64_encode_step(Bytes(input), input.size(), FALSE, output.Room(), &state, &save);
  written += g_base64_encode_close(FALSE, output.Room() + written, &state, &save);
  output.SetLength(written);
}

void GlibDecode(std::string_view input, Output& output) {
  gint state = 0;
  guint save = 0;
  output.SetLength(g_base64_decode_step(input.data(), input.size(), output.Bytes(), &state, &save));
}

void GlibToLower(std::string_view input, Output& output) {
  TakeFromGlib(output, g_ascii_strdown(input.data(), static_cast<gssize>(input.size())), input.size());
}

void GlibMd5(std::string_view input, Output& output) {
  const std::unique_ptr<GChecksum, decltype(&g_checksum_free)> sum(g_checksum_new(G_CHECKSUM_MD5), &g_checksum_free);
  g_checksum_update(sum.get(), Bytes(input), static_cast<gssize>(input.size()));
  gsize length = 16;
  g_checksum_get_digest(sum.get(), output.Bytes(), &length);
  output.SetLength(length);
}

template <GMimeContentEncoding Encoding>
void GmimeEncode(std::string_view input, Output& output) {
  GMimeEncoding state;
  g_mime_encoding_init_encode(&state, Encoding);
  output.SetLength(g_mime_encoding_flush(&state, input.data(), input.size(), output.Room()));
}

template <GMimeContentEncoding Encoding>
void GmimeDecode(std::string_view input, Output& output) {
  GMimeEncoding state;
  g_mime_encoding_init_decode(&state, Encoding);
  if (Encoding == GMIME_CONTENT_ENCODING_UUENCODE) {
    state.state = GMIME_UUDECODE_STATE_BEGIN;  // there is no "begin" line
  }
  output.SetLength(g_mime_encoding_step(&state, input.data(), input.size(), output.Room()));
}

// POCO

void PocoEncode(std::string_view input, Output& output) {
  Poco::MemoryOutputStream stream(output.Room(), static_cast<std::streamsize>(output.RoomSize()));
  Poco::Base64Encoder encoder(stream);
  encoder.rdbuf()->setLineLength(76);
  encoder.write(input.data(), static_cast<std::streamsize>(input.size()));
  encoder.close();
  output.SetLength(static_cast<std::size_t>(stream.charsWritten()));
}

void PocoDecode(std::string_view input, Output& output) {
  Poco::MemoryInputStream stream(input.data(), static_cast<std::streamsize>(input.size()));
  Poco::Base64Decoder decoder(stream);
  decoder.read(output.Room(), static_cast<std::streamsize>(output.RoomSize()));
  output.SetLength(static_cast<std::size_t>(decoder.gcount()));
}

// libmodpbase64, which knows no line breaks: line by line where there are some

void ModpEncode(std::string_view input, Output& output) {
  char* out = output.Room();
  while (!input.empty()) {
    const std::string_view line = input.substr(0, 57);
    input.remove_prefix(line.size());
    out += modp_b64_encode(out, line.data(), line.size());
    if (line.size() == 57) {
      std::memcpy(out, "\r\n", 2);
      out += 2;
    }
  }
  output.SetLength(static_cast<std::size_t>(out - output.Room()));
}

void ModpDecode(std::string_view input, Output& output) {
  char* out = output.Room();
  while (!input.empty()) {
    const std::string_view line = input.substr(0, 76);
    input.remove_prefix(std::min<std::size_t>(input.size(), 78));
    out += modp_b64_decode(out, line.data(), line.size());
  }
  output.SetLength(static_cast<std::size_t>(out - output.Room()));
}

void ModpEncodeUnbroken(std::string_view input, Output& output) {
  output.SetLength(modp_b64_encode(output.Room(), input.data(), input.size()));
}

void ModpDecodeUnbroken(std::string_view input, Output& output) {
  output.SetLength(modp_b64_decode(output.Room(), input.data(), input.size()));
}

// The C and C++ libraries, zlib

void Memcpy(std::string_view input, Output& output) {
  std::memcpy(output.Room(), input.data(), input.size());
  output.SetLength(input.size());
}

/// What no interface that allocates its result can be faster than.
void MallocMemcpy(std::string_view input, Output& output) {
  auto* const copy = static_cast<char*>(std::malloc(input.size()));
  std::memcpy(copy, input.data(), input.size());
  output.Take(copy, input.size(), [](char* data) { std::free(data); });
}

void StdToLower(std::string_view input, Output& output) {
  std::transform(input.begin(), input.end(), output.Room(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  output.SetLength(input.size());
}

void ZlibCrc32(std::string_view input, Output& output) {
  const auto crc = static_cast<std::uint32_t>(crc32_z(0, Bytes(input), input.size()));
  std::memcpy(output.Room(), &crc, sizeof crc);
  output.SetLength(sizeof crc);
}

#ifdef QSBASE_BENCHMARK_YENCODE

void EncodeByYencode(std::string_view input, Output& output) {
  output.SetLength(YencodeEncode128(Bytes(input), input.size(), output.Bytes()));
}

void DecodeByYencode(std::string_view input, Output& output) {
  output.SetLength(YencodeDecode(Bytes(input), input.size(), output.Bytes()));
}

#endif

}  // namespace

void AddPeers(std::vector<Contestant>& all) {
  constexpr auto kBase64 = GMIME_CONTENT_ENCODING_BASE64;
  constexpr auto kUu = GMIME_CONTENT_ENCODING_UUENCODE;
  constexpr auto kQuoted = GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE;
  using A = Agreement;
  const std::vector<Contestant> peers = {
      {"memcpy", "memcpy", A::kEqual, &Memcpy},
      {"memcpy", "malloc, memcpy", A::kEqual, &MallocMemcpy},
      {"base64-encode", "OpenSSL", A::kButBreaks, &OpenSslEncode},
      {"base64-encode", "GLib", A::kButBreaks, &GlibEncode},
      {"base64-encode", "GMime", A::kButBreaks, &GmimeEncode<kBase64>},
      {"base64-encode", "POCO", A::kButBreaks, &PocoEncode},
      {"base64-encode", "modp", A::kButBreaks, &ModpEncode},
      {"base64-decode", "OpenSSL", A::kEqual, &OpenSslDecode},
      {"base64-decode", "GLib", A::kEqual, &GlibDecode},
      {"base64-decode", "GMime", A::kEqual, &GmimeDecode<kBase64>},
      {"base64-decode", "POCO", A::kEqual, &PocoDecode},
      {"base64-decode", "modp", A::kEqual, &ModpDecode},
      {"base64-encode-unbroken", "OpenSSL", A::kEqual, &OpenSslEncodeUnbroken},
      {"base64-encode-unbroken", "GLib", A::kEqual, &GlibEncodeUnbroken},
      {"base64-encode-unbroken", "modp", A::kEqual, &ModpEncodeUnbroken},
      {"base64-decode-unbroken", "GLib", A::kEqual, &GlibDecode},
      {"base64-decode-unbroken", "modp", A::kEqual, &ModpDecodeUnbroken},
#ifdef QSBASE_BENCHMARK_YENCODE
      {"yenc-encode", "yencode", A::kBack, &EncodeByYencode},
      {"yenc-decode", "yencode", A::kEqual, &DecodeByYencode},
#endif
      {"uu-encode", "GMime", A::kBack, &GmimeEncode<kUu>},
      {"uu-decode", "GMime", A::kEqual, &GmimeDecode<kUu>},
      {"qp-encode-text", "GMime", A::kBackButBreaks, &GmimeEncode<kQuoted>},
      {"qp-decode-text", "GMime", A::kEqual, &GmimeDecode<kQuoted>},
      {"qp-decode-random", "GMime", A::kEqual, &GmimeDecode<kQuoted>},
      {"hex-encode", "OpenSSL", A::kEqual, &OpenSslToHex},
      {"hex-decode", "OpenSSL", A::kEqual, &OpenSslFromHex},
      {"lower-case", "std::tolower", A::kEqual, &StdToLower},
      {"lower-case", "GLib", A::kEqual, &GlibToLower},
      {"md5", "OpenSSL", A::kEqual, &OpenSslMd5},
      {"md5", "GLib", A::kEqual, &GlibMd5},
      {"crc32", "zlib", A::kEqual, &ZlibCrc32},
  };
  all.insert(all.end(), peers.begin(), peers.end());
}

}  // namespace qsbase::benchmarks
