// The transfer encodings, per byte of binary data (of text for quoted-printable). Peers: OpenSSL and GLib for Base64
// with line breaks, memcpy as the ceiling. The peers that are programs or interpreters of their own (sharutils,
// Python's codecs) are in processes.py.
#include <QSbase/codec/encodedecode.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <openssl/evp.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "inputs.h"

namespace {

using qsbase::benchmarks::kInputSize;
using qsbase::benchmarks::MailText;
using qsbase::benchmarks::RandomBytes;

constexpr int kBase64 = 0x1;
constexpr int kQuotedPrintable = 0x2;
constexpr int kQuotedPrintableText = 0x202;
constexpr int kUu = 0x4;
constexpr int kXx = 0xC;
constexpr int kYenc = 0x800;

const std::string& Binary() {
  static const std::string bytes = RandomBytes(kInputSize);
  return bytes;
}

const std::string& Text() {
  static const std::string text = MailText(kInputSize);
  return text;
}

void CountBytes(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
}

std::string Encoded(const std::string& input, int flags) {
  CEncodeDecode coder(75, 76);
  std::string text;
  coder.Encode(input, text, flags);
  return text;
}

void Encode(benchmark::State& state, const std::string& (*input)(), int flags) {
  CEncodeDecode coder(75, 76);
  const std::string& data = input();
  for (auto _ : state) {
    char* output = nullptr;
    unsigned int length = 0;
    coder.Encode(data.data(), 0, static_cast<unsigned int>(data.size()), &output, length, flags);
    benchmark::DoNotOptimize(output);
    CEncodeDecode::FreeBuffer(output, flags);
  }
  CountBytes(state, data.size());
}

void Decode(benchmark::State& state, const std::string& (*input)(), int flags) {
  CEncodeDecode coder(75, 76);
  const std::string& data = input();
  const std::string text = Encoded(data, flags);
  std::string back;
  if (coder.Decode(text, back, flags) != 0 || back != data) {
    return state.SkipWithError("the round trip differs");
  }
  for (auto _ : state) {
    char* output = nullptr;
    unsigned int length = 0;
    coder.Decode(text.data(), 0, static_cast<unsigned int>(text.size()), &output, length, flags);
    benchmark::DoNotOptimize(output);
    CEncodeDecode::FreeBuffer(output, flags);
  }
  CountBytes(state, data.size());
}

std::string WithoutBreaks(std::string text) {
  std::string result;
  for (const char c : text) {
    if (c != '\r' && c != '\n') {
      result += c;
    }
  }
  return result;
}

using EncodeContext = std::unique_ptr<EVP_ENCODE_CTX, decltype(&EVP_ENCODE_CTX_free)>;

std::string OpenSslEncoded(const std::string& data) {
  const EncodeContext context(EVP_ENCODE_CTX_new(), &EVP_ENCODE_CTX_free);
  std::string text(data.size() * 2, '\0');
  auto* out = reinterpret_cast<unsigned char*>(text.data());
  int written = 0;
  int rest = 0;
  EVP_EncodeInit(context.get());
  EVP_EncodeUpdate(context.get(), out, &written, reinterpret_cast<const unsigned char*>(data.data()),
                   static_cast<int>(data.size()));
  EVP_EncodeFinal(context.get(), out + written, &rest);
  text.resize(static_cast<std::size_t>(written + rest));
  return text;
}

void OpenSslEncode(benchmark::State& state) {
  const std::string& data = Binary();
  if (WithoutBreaks(OpenSslEncoded(data)) != WithoutBreaks(Encoded(data, kBase64))) {
    return state.SkipWithError("the outputs differ");
  }
  const EncodeContext context(EVP_ENCODE_CTX_new(), &EVP_ENCODE_CTX_free);
  for (auto _ : state) {
    std::unique_ptr<unsigned char[]> out(new unsigned char[data.size() * 3 / 2]);
    int written = 0;
    int rest = 0;
    EVP_EncodeInit(context.get());
    EVP_EncodeUpdate(context.get(), out.get(), &written, reinterpret_cast<const unsigned char*>(data.data()),
                     static_cast<int>(data.size()));
    EVP_EncodeFinal(context.get(), out.get() + written, &rest);
    benchmark::DoNotOptimize(out.get());
  }
  CountBytes(state, data.size());
}

void OpenSslDecode(benchmark::State& state) {
  const std::string& data = Binary();
  const std::string text = Encoded(data, kBase64);
  const EncodeContext context(EVP_ENCODE_CTX_new(), &EVP_ENCODE_CTX_free);
  bool same = false;
  for (auto _ : state) {
    std::unique_ptr<unsigned char[]> out(new unsigned char[text.size()]);
    int written = 0;
    int rest = 0;
    EVP_DecodeInit(context.get());
    EVP_DecodeUpdate(context.get(), out.get(), &written, reinterpret_cast<const unsigned char*>(text.data()),
                     static_cast<int>(text.size()));
    EVP_DecodeFinal(context.get(), out.get() + written, &rest);
    benchmark::DoNotOptimize(out.get());
    if (!same) {
      state.PauseTiming();
      same = static_cast<std::size_t>(written + rest) == data.size() &&
             std::memcmp(out.get(), data.data(), data.size()) == 0;
      state.ResumeTiming();
      if (!same) {
        return state.SkipWithError("the outputs differ");
      }
    }
  }
  CountBytes(state, data.size());
}

void GlibEncode(benchmark::State& state) {
  const std::string& data = Binary();
  for (auto _ : state) {
    gint step = 0;
    gint save = 0;
    std::unique_ptr<char[]> out(new char[data.size() * 3 / 2]);
    gsize written =
        g_base64_encode_step(reinterpret_cast<const guchar*>(data.data()), data.size(), TRUE, out.get(), &step, &save);
    written += g_base64_encode_close(TRUE, out.get() + written, &step, &save);
    benchmark::DoNotOptimize(written);
  }
  CountBytes(state, data.size());
}

void GlibDecode(benchmark::State& state) {
  const std::string& data = Binary();
  const std::string text = Encoded(data, kBase64);
  for (auto _ : state) {
    gsize length = 0;
    guchar* out = g_base64_decode(text.c_str(), &length);
    benchmark::DoNotOptimize(out);
    g_free(out);
    if (length != data.size()) {
      return state.SkipWithError("the outputs differ");
    }
  }
  CountBytes(state, data.size());
}

void Memcpy(benchmark::State& state) {
  const std::string& data = Binary();
  std::string out(data.size(), '\0');
  for (auto _ : state) {
    std::memcpy(out.data(), data.data(), data.size());
    benchmark::ClobberMemory();
  }
  CountBytes(state, data.size());
}

BENCHMARK(Memcpy);
BENCHMARK_CAPTURE(Encode, base64, &Binary, kBase64);
BENCHMARK(OpenSslEncode);
BENCHMARK(GlibEncode);
BENCHMARK_CAPTURE(Decode, base64, &Binary, kBase64);
BENCHMARK(OpenSslDecode);
BENCHMARK(GlibDecode);
BENCHMARK_CAPTURE(Encode, qp_text, &Text, kQuotedPrintableText);
BENCHMARK_CAPTURE(Decode, qp_text, &Text, kQuotedPrintableText);
BENCHMARK_CAPTURE(Encode, qp_binary, &Binary, kQuotedPrintable);
BENCHMARK_CAPTURE(Decode, qp_binary, &Binary, kQuotedPrintable);
BENCHMARK_CAPTURE(Encode, uu, &Binary, kUu);
BENCHMARK_CAPTURE(Decode, uu, &Binary, kUu);
BENCHMARK_CAPTURE(Encode, xx, &Binary, kXx);
BENCHMARK_CAPTURE(Decode, xx, &Binary, kXx);
BENCHMARK_CAPTURE(Encode, yenc, &Binary, kYenc);
BENCHMARK_CAPTURE(Decode, yenc, &Binary, kYenc);

}  // namespace
