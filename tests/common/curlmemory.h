/// \file
/// Lets libcurl run out of memory at a chosen allocation.
#ifndef QSBASE_TESTS_COMMON_CURLMEMORY_H
#define QSBASE_TESTS_COMMON_CURLMEMORY_H

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <curl/curl.h>

namespace qsbase::testing {

/// So many of libcurl's allocations succeed from now on, of all threads together; every later one fails.
inline std::atomic<int> curlAllocationsLeft{INT_MAX};

/// Starts a libcurl that is not running with an allocator that looks at curlAllocationsLeft. InitQsInetHttp(2) stops
/// it.
inline void StartCurlOfCountedAllocations() {
  static const auto allocates = [] { return curlAllocationsLeft-- > 0; };
  const curl_malloc_callback allocate = [](std::size_t size) { return allocates() ? std::malloc(size) : nullptr; };
  const curl_realloc_callback reallocate = [](void* memory, std::size_t size) {
    return allocates() ? std::realloc(memory, size) : nullptr;
  };
  const curl_strdup_callback duplicate = [](const char* text) {
    void* const copy = allocates() ? std::malloc(std::strlen(text) + 1) : nullptr;
    return copy == nullptr ? nullptr : std::strcpy(static_cast<char*>(copy), text);
  };
  const curl_calloc_callback allocateCleared = [](std::size_t count, std::size_t size) {
    return allocates() ? std::calloc(count, size) : nullptr;
  };
  curlAllocationsLeft = INT_MAX;
  curl_global_init_mem(CURL_GLOBAL_ALL, allocate, &std::free, reallocate, duplicate, allocateCleared);
}

}  // namespace qsbase::testing

#endif
