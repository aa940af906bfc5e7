// Encoding and decoding of entities beside libxml2's own.
#include <QSbase/support/libxmlsupport.h>
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include <libxml/entities.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include "inputs.h"

namespace {

constexpr std::size_t kSize = std::size_t{16} << 20;

// Quotes are what libxml2 does not encode.
void DropQuotes(std::string& text) {
  for (char& c : text) {
    c = c == '"' || c == '\'' || c == '\r' ? ' ' : c;
  }
}

// Mail text: a special character now and then.
const std::string& Ascii() {
  static const std::string text = [] {
    std::string mail = qsbase::benchmarks::MailText(kSize);
    for (char& c : mail) {
      c = static_cast<unsigned char>(c) < 0x80 ? c : 'x';
    }
    DropQuotes(mail);
    return mail;
  }();
  return text;
}

// One letter in eight has two bytes, one character in forty is special.
const std::string& Mixed() {
  static const std::string text = [] {
    std::mt19937 random(1);
    std::string mixed;
    while (mixed.size() < kSize) {
      const auto dice = random() % 40;
      mixed += dice == 0 ? "&" : dice < 6 ? "\xC3\xA9" : "e";
    }
    return mixed;
  }();
  return text;
}

const std::string& Text(bool isMixed) { return isMixed ? Mixed() : Ascii(); }

std::string Theirs(const std::string& text) {
  xmlChar* encoded = xmlEncodeEntitiesReentrant(nullptr, reinterpret_cast<const xmlChar*>(text.c_str()));
  std::string result = reinterpret_cast<const char*>(encoded);
  xmlFree(encoded);
  return result;
}

// libxml2's decoder of entities, as its parser uses it for values.
xmlChar* TheirDecoded(xmlParserCtxt* context, const std::string& text) {
  return xmlStringDecodeEntities(context, reinterpret_cast<const xmlChar*>(text.c_str()), XML_SUBSTITUTE_REF, 0, 0, 0);
}

void Require(bool same, const char* what) {
  if (!same) {
    std::fprintf(stderr, "%s: outputs differ\n", what);
    std::abort();
  }
}

void Encode(benchmark::State& state) {
  const std::string& text = Text(state.range(0) != 0);
  Require(QsEncodeEntities(text, false) == Theirs(text), "encode");
  for (auto _ : state) {
    benchmark::DoNotOptimize(QsEncodeEntities(text, false));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
}

void Libxml2Encode(benchmark::State& state) {
  const std::string& text = Text(state.range(0) != 0);
  for (auto _ : state) {
    xmlChar* encoded = xmlEncodeEntitiesReentrant(nullptr, reinterpret_cast<const xmlChar*>(text.c_str()));
    benchmark::DoNotOptimize(encoded);
    xmlFree(encoded);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
}

// The named entities only, which both decode.
std::string ForDecoding(bool isMixed) {
  std::string text = Text(isMixed);
  std::string encoded;
  for (const char c : text) {
    encoded += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
  }
  return encoded;
}

void Decode(benchmark::State& state) {
  const bool isMixed = state.range(0) != 0;
  const std::string text = ForDecoding(isMixed);
  Require(QsXmlDecodeSpecialChars(text) == Text(isMixed), "decode");
  for (auto _ : state) {
    benchmark::DoNotOptimize(QsXmlDecodeSpecialChars(text));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
}

void Libxml2Decode(benchmark::State& state) {
  const bool isMixed = state.range(0) != 0;
  const std::string text = ForDecoding(isMixed);
  xmlParserCtxt* const context = xmlNewParserCtxt();
  xmlCtxtUseOptions(context, XML_PARSE_HUGE);
  for (auto _ : state) {
    xmlChar* decoded = TheirDecoded(context, text);
    benchmark::DoNotOptimize(decoded);
    xmlFree(decoded);
  }
  xmlChar* decoded = TheirDecoded(context, text);
  Require(decoded != nullptr && Text(isMixed) == reinterpret_cast<const char*>(decoded), "libxml2's decode");
  xmlFree(decoded);
  xmlFreeParserCtxt(context);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
}

BENCHMARK(Encode)->ArgName("mixed")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Libxml2Encode)->ArgName("mixed")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Decode)->ArgName("mixed")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Libxml2Decode)->ArgName("mixed")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
