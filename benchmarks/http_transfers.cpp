// Transfers for http.py to time: through the library, and written directly on libcurl.
//
// usage: http_transfers file|memory|flushed|unflushed|string URL [PATH]
//        http_transfers requests|direct|kept URL COUNT
//
// file, memory         one download through the library
// flushed, unflushed   one into a file directly on libcurl, every chunk flushed or not
// string               one into a std::string directly on libcurl
// requests             small requests through the library
// direct, kept         the same directly on libcurl: a handle for each, or one handle that keeps its connection
#include <QSbase/net/http.h>
#include <curl/curl.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

using FilePtr = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
using HandlePtr = std::unique_ptr<CURL, void (*)(CURL*)>;
using Receiver = std::size_t (*)(char*, std::size_t, std::size_t, void*);

bool Fetch(const std::string& url, std::FILE* output, std::string& body) {
  QsInetHttpRequest request;
  request.url = url;
  request.outputFile = output;
  QsInetHttpResponse response;
  const bool done = QsInetHttp(request, response, nullptr, nullptr, nullptr, nullptr, 0);
  body.swap(response.body);
  return done && response.httpCode == 200;
}

std::size_t ToFile(char* data, std::size_t size, std::size_t count, void* file) {
  return std::fwrite(data, size, count, static_cast<std::FILE*>(file));
}

std::size_t ToFileFlushed(char* data, std::size_t size, std::size_t count, void* file) {
  const std::size_t written = ToFile(data, size, count, file);
  std::fflush(static_cast<std::FILE*>(file));
  return written;
}

std::size_t ToString(char* data, std::size_t size, std::size_t count, void* body) {
  static_cast<std::string*>(body)->append(data, size * count);
  return size * count;
}

bool FetchDirectly(CURL* handle, const std::string& url, Receiver receiver, void* user) {
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, 102400L);
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, receiver);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, user);
  long code = 0;
  return curl_easy_perform(handle) == CURLE_OK &&
         curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &code) == CURLE_OK && code == 200;
}

HandlePtr NewHandle() { return HandlePtr(curl_easy_init(), &curl_easy_cleanup); }

bool Download(const std::string& mode, const std::string& url, const char* path) {
  std::string body;
  if (mode == "memory") {
    return Fetch(url, nullptr, body);
  }
  if (mode == "string") {
    return FetchDirectly(NewHandle().get(), url, &ToString, &body);
  }
  const FilePtr file(std::fopen(path, "wbe"), &std::fclose);
  if (mode == "file") {
    return Fetch(url, file.get(), body);
  }
  return FetchDirectly(NewHandle().get(), url, mode == "flushed" ? &ToFileFlushed : &ToFile, file.get());
}

bool ManyRequests(const std::string& mode, const std::string& url, int count) {
  const HandlePtr kept = NewHandle();
  std::string first;
  for (int i = 0; i < count; ++i) {
    std::string body;
    const bool done = mode == "requests" ? Fetch(url, nullptr, body)
                      : mode == "kept"   ? FetchDirectly(kept.get(), url, &ToString, &body)
                                         : FetchDirectly(NewHandle().get(), url, &ToString, &body);
    first = i == 0 ? body : first;
    if (!done || body.empty() || body != first) {
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  const std::string mode = count > 2 ? arguments[1] : "";
  InitQsInetHttp(1);
  bool done = false;
  if (mode == "requests" || mode == "direct" || mode == "kept") {
    done = ManyRequests(mode, arguments[2], count > 3 ? std::atoi(arguments[3]) : 10000);
  } else if (mode == "memory" || mode == "string" || count > 3) {
    done = Download(mode, arguments[2], count > 3 ? arguments[3] : nullptr);
  }
  InitQsInetHttp(2);
  return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
