#include <QSbase/net/ftptransfer.h>

#include <cstdio>

#include <curl/curl.h>

#include <QSbase/text/qsstring.h>

namespace qsbase::detail {

constinit std::atomic<long> ftpStallSeconds{120};  // as long as libcurl waits for a reply

std::size_t ReadStream(char* buffer, std::size_t size, std::size_t count, void* stream) noexcept {
  std::FILE* const file = static_cast<std::FILE*>(stream);
  if (file == nullptr) {
    return CURL_READFUNC_ABORT;
  }
  const std::size_t bytes = std::fread(buffer, 1, size * count, file);
  return std::ferror(file) != 0 ? CURL_READFUNC_ABORT : bytes;
}

void SplitListing(std::string_view listing, std::vector<std::string>& names) {
  SplitString(std::string(listing), "\n", names, false);
  for (std::string& name : names) {
    if (!name.empty() && name.back() == '\r') {
      name.pop_back();
    }
  }
  std::erase(names, std::string());
}

}  // namespace qsbase::detail
