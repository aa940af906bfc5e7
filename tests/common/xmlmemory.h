/// \file
/// Lets one allocation of libxml2 fail.
#ifndef QSBASE_TESTS_COMMON_XMLMEMORY_H
#define QSBASE_TESTS_COMMON_XMLMEMORY_H

#include <libxml/xmlmemory.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace qsbase::testing {

/// How many allocations come before the one that fails; those behind it succeed. None fails while it is negative.
inline int xmlAllocationsLeft = -1;

/// All that were asked for.
inline int xmlAllocations = 0;

inline bool MayXmlAllocate() {
  ++xmlAllocations;
  return xmlAllocationsLeft < 0 || xmlAllocationsLeft-- > 0;
}

/// From now on libxml2 asks here. Before its first use in the process. For one thread.
inline void CountXmlAllocations() {
  const auto allocate = [](std::size_t size) -> void* { return MayXmlAllocate() ? std::malloc(size) : nullptr; };
  const auto reallocate = [](void* memory, std::size_t size) -> void* {
    return MayXmlAllocate() ? std::realloc(memory, size) : nullptr;
  };
  const auto duplicate = [](const char* text) -> char* {
    const std::size_t size = std::strlen(text) + 1;
    void* const copy = MayXmlAllocate() ? std::malloc(size) : nullptr;
    return copy != nullptr ? static_cast<char*>(std::memcpy(copy, text, size)) : nullptr;
  };
  xmlMemSetup(&std::free, allocate, reallocate, duplicate);
}

}  // namespace qsbase::testing

#endif
