/// \file
/// Options of a libcurl handle, with their types checked. Internal.
#ifndef QSBASE_NET_EASYOPTION_H
#define QSBASE_NET_EASYOPTION_H

#include <type_traits>

#include <curl/curl.h>

namespace qsbase::detail {

/// Sets one option. libcurl reads its variable arguments as the option's documented type: long, curl_off_t or a
/// pointer. `first` keeps the first code of a series of calls that is not CURLE_OK.
template <typename Value>
CURLcode SetEasyOption(CURL* handle, CURLoption option, Value value, CURLcode& first) {
  static_assert(std::is_pointer_v<Value> || std::is_same_v<Value, long> || std::is_same_v<Value, curl_off_t>);
  const CURLcode code = curl_easy_setopt(handle, option, value);
  if (first == CURLE_OK) {
    first = code;
  }
  return code;
}

}  // namespace qsbase::detail

#endif
