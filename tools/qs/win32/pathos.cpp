#include "../pathos.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <algorithm>

namespace qs {

// The whole path has to fit: drive, folders, separator, name, terminator.
std::size_t LongestNameIn(const std::string& folder) {
  constexpr std::size_t kLongestName = 255;
  const std::string path = folder.empty() ? "." : folder;
  const std::size_t taken = GetFullPathNameA(path.c_str(), 0, nullptr, nullptr) + 1;  // with separator and terminator
  return taken < MAX_PATH ? std::min(kLongestName, MAX_PATH - taken) : 0;
}

}  // namespace qs
