#include <QSbase/net/ftptransfer.h>

#include <cstdio>

#include <curl/curl.h>

#include <QSbase/net/httptransfer.h>
#include <QSbase/text/qsstring.h>

namespace qsbase::detail {

constinit std::atomic<long> ftpStallSeconds{120};

std::size_t ReadStream(char* buffer, std::size_t size, std::size_t count, void* stream) noexcept {
  std::FILE* const file = static_cast<std::FILE*>(stream);
  if (file == nullptr) {
    return CURL_READFUNC_ABORT;
  }
  const std::size_t bytes = std::fread(buffer, 1, size * count, file);
  return std::ferror(file) != 0 ? CURL_READFUNC_ABORT : bytes;
}

std::size_t TakeListing(char* data, std::size_t size, std::size_t count, void* sink) noexcept {
  const TransferSink& listing = *static_cast<const TransferSink*>(sink);
  return listing.held + size * count > longestListing ? 0 : ReceiveBody(data, size, count, sink);
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
