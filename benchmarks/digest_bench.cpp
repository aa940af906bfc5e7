// MD5 beside OpenSSL's and GLib's, CRC-32 beside zlib's.
#include <QSbase/codec/hash.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <openssl/evp.h>
#include <zlib.h>

#include <cstring>
#include <string>

#include "inputs.h"

namespace {

const std::string& Input() {
  static const std::string bytes = qsbase::benchmarks::RandomBytes(qsbase::benchmarks::kInputSize);
  return bytes;
}

void CountBytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(Input().size()));
}

void OpenSslDigest(unsigned char digest[16]) {
  unsigned int length = 0;
  EVP_Digest(Input().data(), Input().size(), digest, &length, EVP_md5(), nullptr);
}

void Md5(benchmark::State& state) {
  unsigned char expected[16];
  unsigned char digest[16];
  OpenSslDigest(expected);
  QsCalcMD5(Input().data(), static_cast<unsigned int>(Input().size()), digest);
  if (std::memcmp(expected, digest, sizeof digest) != 0) {
    return state.SkipWithError("the digests differ");
  }
  for (auto _ : state) {
    QsCalcMD5(Input().data(), static_cast<unsigned int>(Input().size()), digest);
    benchmark::DoNotOptimize(digest);
  }
  CountBytes(state);
}

void OpenSslMd5(benchmark::State& state) {
  unsigned char digest[16];
  for (auto _ : state) {
    OpenSslDigest(digest);
    benchmark::DoNotOptimize(digest);
  }
  CountBytes(state);
}

void GlibMd5(benchmark::State& state) {
  for (auto _ : state) {
    gchar* hex =
        g_compute_checksum_for_data(G_CHECKSUM_MD5, reinterpret_cast<const guchar*>(Input().data()), Input().size());
    benchmark::DoNotOptimize(hex);
    g_free(hex);
  }
  CountBytes(state);
}

void Crc32(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(QsCalcCRC32(Input().data(), static_cast<unsigned int>(Input().size())));
  }
  CountBytes(state);
}

void ZlibCrc32(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        crc32(0, reinterpret_cast<const unsigned char*>(Input().data()), static_cast<uInt>(Input().size())));
  }
  CountBytes(state);
}

BENCHMARK(Md5);
BENCHMARK(OpenSslMd5);
BENCHMARK(GlibMd5);
BENCHMARK(Crc32);
BENCHMARK(ZlibCrc32);

}  // namespace
