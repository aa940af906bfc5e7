// Taking URLs apart and normalising them, beside libcurl's URL API, POCO's URI and GLib's GUri: each call gives scheme,
// user, host, port, path and query, and the canonical text. And what the check of a URL costs.
#include <QSbase/net/url.h>
#include <QSbase/text/qsstring.h>
#include <benchmark/benchmark.h>

#include <Poco/URI.h>
#include <curl/curl.h>
#include <glib.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kCount = 100000;

std::string Pick(std::mt19937_64& random, const std::vector<std::string>& from) { return from[random() % from.size()]; }

std::string MakeUrl(std::mt19937_64& random) {
  const auto number = [&random](std::size_t below) { return std::to_string(random() % below); };
  std::string url = Pick(random, {"http://", "https://", "HTTP://", "http://"});
  if (random() % 8 == 0) {
    url.append("user").append(number(100)).append("@");
  }
  url.append(Pick(random, {"www.", "news.", "Images.", "cdn7.", ""})).append("host").append(number(5000));
  url.append(Pick(random, {".example.org", ".Example.com", ".example.net"}));
  if (random() % 6 == 0) {
    url.append(":").append(std::to_string(1024 + random() % 60000));
  }
  for (std::size_t depth = 1 + random() % 6; depth > 0; --depth) {
    url.append("/").append(
        Pick(random, {"articles", "2026", "11", "Harbour%20Lights", "a", "img", "..", ".", "long-segment-name_7"}));
  }
  url.append("/file").append(number(1000)).append(Pick(random, {".html", ".jpg", "", ".tar.gz"}));
  if (random() % 3 == 0) {
    url.append("?id=").append(std::to_string(random())).append("&lang=en");
  }
  return url;
}

const std::vector<std::string>& Urls() {
  static const std::vector<std::string> urls = [] {
    std::mt19937_64 random(20261121);
    std::vector<std::string> made(kCount);
    for (std::string& url : made) {
      url = MakeUrl(random);
    }
    return made;
  }();
  return urls;
}

// What each of them gives; the fields are those of the last one where a record is kept.
struct Parts {
  std::string user;
  std::string host;
  int port = 0;
  std::string path;
  std::string query;
  std::string canonical;
};

struct CurlFree {
  void operator()(char* text) const { curl_free(text); }
};
using CurlText = std::unique_ptr<char, CurlFree>;

CurlText CurlPart(CURLU* handle, CURLUPart part, unsigned int flags = 0) {
  char* text = nullptr;
  curl_url_get(handle, part, &text, flags);
  return CurlText(text);
}

// ---- One URL each; `use` gets what was found

struct WithQSbase {
  QsUrlComponents parts{};

  template <typename Use>
  void operator()(const std::string& url, Use use) {
    QsInternetCrackUrl(url.c_str(), parts);
    const std::string canonical = NormalizeUrl(url);
    use(parts.userName, parts.hostName, parts.port, parts.urlPath, parts.extraInfo, canonical);
  }
};

struct WithCurl {
  CURLU* handle = curl_url();

  WithCurl() = default;
  WithCurl(const WithCurl&) = delete;
  WithCurl& operator=(const WithCurl&) = delete;
  ~WithCurl() { curl_url_cleanup(handle); }

  template <typename Use>
  void operator()(const std::string& url, Use use) {
    if (curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) {
      std::abort();
    }
    const CurlText user = CurlPart(handle, CURLUPART_USER);
    const CurlText host = CurlPart(handle, CURLUPART_HOST);
    const CurlText port = CurlPart(handle, CURLUPART_PORT, CURLU_DEFAULT_PORT);
    const CurlText path = CurlPart(handle, CURLUPART_PATH);
    const CurlText query = CurlPart(handle, CURLUPART_QUERY);
    const CurlText canonical = CurlPart(handle, CURLUPART_URL);
    use(user == nullptr ? "" : user.get(), host.get(), std::atoi(port.get()), path.get(),
        query == nullptr ? "" : query.get(), canonical.get());
  }
};

struct WithPoco {
  template <typename Use>
  void operator()(const std::string& url, Use use) {
    Poco::URI uri(url);
    uri.normalize();
    const std::string canonical = uri.toString();
    use(uri.getUserInfo(), uri.getHost(), static_cast<int>(uri.getPort()), uri.getPath(), uri.getRawQuery(), canonical);
  }
};

struct WithGlib {
  template <typename Use>
  void operator()(const std::string& url, Use use) {
    GError* error = nullptr;
    GUri* uri =
        g_uri_parse(url.c_str(), static_cast<GUriFlags>(G_URI_FLAGS_SCHEME_NORMALIZE | G_URI_FLAGS_ENCODED), &error);
    if (uri == nullptr) {
      std::abort();
    }
    char* canonical = g_uri_to_string(uri);
    const char* user = g_uri_get_userinfo(uri);
    const char* query = g_uri_get_query(uri);
    use(user == nullptr ? "" : user, g_uri_get_host(uri), g_uri_get_port(uri), g_uri_get_path(uri),
        query == nullptr ? "" : query, canonical);
    g_free(canonical);
    g_uri_unref(uri);
  }
};

template <typename With>
Parts PartsOf(With& with, const std::string& url) {
  Parts parts;
  with(url, [&parts](const auto& user, const auto& host, int port, const auto& path, const auto& query,
                     const auto& canonical) { parts = {user, host, port, path, query, canonical}; });
  return parts;
}

// Before anything is measured: all find the same parts. The peers decode or simplify more or less of the path, so the
// canonical texts are compared where there is nothing of that kind in it.
bool AgreesWith(const Parts& ours, const Parts& theirs, const std::string& url) {
  const bool isPlain = url.find_first_of("%") == std::string::npos && url.find("/.") == std::string::npos &&
                       url.find('@') == std::string::npos;
  return ours.user == theirs.user && QsString::ToLower(ours.host) == QsString::ToLower(theirs.host) &&
         ours.port == theirs.port && (!isPlain || ours.path == theirs.path) && ours.query == theirs.query &&
         (!isPlain || ours.canonical == QsString::ToLower(theirs.canonical));
}

void Compare() {
  WithCurl curl;
  WithPoco poco;
  WithGlib glib;
  for (const std::string& url : Urls()) {
    WithQSbase qsbase;  // each with a record of its own: parts that a URL lacks stay
    const Parts ours = PartsOf(qsbase, url);
    if (!AgreesWith(ours, PartsOf(curl, url), url) || !AgreesWith(ours, PartsOf(poco, url), url) ||
        !AgreesWith(ours, PartsOf(glib, url), url)) {
      std::fprintf(stderr, "another reading of %s\n", url.c_str());
      std::exit(1);
    }
  }
}

template <typename With>
void CrackAndNormalize(benchmark::State& state) {
  static const bool compared = (Compare(), true);
  benchmark::DoNotOptimize(compared);
  With with;
  for (auto _ : state) {
    for (const std::string& url : Urls()) {
      with(url, [](const auto& user, const auto& host, int port, const auto& path, const auto& query,
                   const auto& canonical) {
        benchmark::DoNotOptimize(&user);
        benchmark::DoNotOptimize(&host);
        benchmark::DoNotOptimize(port);
        benchmark::DoNotOptimize(&path);
        benchmark::DoNotOptimize(&query);
        benchmark::DoNotOptimize(&canonical);
      });
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kCount));
}

void Crack(benchmark::State& state) {
  QsUrlComponents parts{};
  for (auto _ : state) {
    for (const std::string& url : Urls()) {
      QsInternetCrackUrl(url.c_str(), parts);
      benchmark::DoNotOptimize(&parts);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kCount));
}

void IsValid(benchmark::State& state) {
  for (auto _ : state) {
    for (const std::string& url : Urls()) {
      benchmark::DoNotOptimize(QsIsValidURL(url));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kCount));
}

void IsValidLong(benchmark::State& state, const std::string& url) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(QsIsValidURL(url));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(url.size()));
}

}  // namespace

BENCHMARK_TEMPLATE(CrackAndNormalize, WithQSbase)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(CrackAndNormalize, WithCurl)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(CrackAndNormalize, WithPoco)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(CrackAndNormalize, WithGlib)->Unit(benchmark::kMillisecond);
BENCHMARK(Crack)->Unit(benchmark::kMillisecond);
BENCHMARK(IsValid)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(IsValidLong, path, "http://h/" + std::string(1 << 20, 'x'))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(IsValidLong, host, "http://" + std::string(1 << 20, 'x') + "~")->Unit(benchmark::kMillisecond);
