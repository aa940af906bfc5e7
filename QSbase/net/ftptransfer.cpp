#include <QSbase/net/ftptransfer.h>

#include <algorithm>
#include <cstdio>

#include <curl/curl.h>

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

std::size_t TakeListing(char* data, std::size_t size, std::size_t count, void* listing) noexcept {
  Listing& taken = *static_cast<Listing*>(listing);
  const std::size_t bytes = size * count;
  taken.names += static_cast<std::uint64_t>(std::count(data, data + bytes, '\n'));
  const std::uint64_t whole = taken.body.held + bytes;
  if (whole > longestListing || taken.names > mostNames) {
    return 0;
  }
  const std::size_t received = ReceiveBody(data, size, count, &taken.body);
  return taken.body.held == whole ? received : 0;  // without memory it goes on with nothing, which is no listing
}

void SplitListing(std::string_view listing, std::vector<std::string>& names) {
  names.clear();
  while (!listing.empty()) {
    const std::size_t end = std::min(listing.find('\n'), listing.size());
    const bool hasReturn = end > 0 && listing[end - 1] == '\r';
    if (const std::string_view name = listing.substr(0, end - (hasReturn ? 1 : 0)); !name.empty()) {
      names.emplace_back(name);
    }
    listing.remove_prefix(std::min(end + 1, listing.size()));
  }
}

}  // namespace qsbase::detail
