/// \file
/// What the fuzz targets share. The last bytes of an input are the parameters, so that any text is a seed as it stands.
#ifndef QSBASE_FUZZ_TARGET_H
#define QSBASE_FUZZ_TARGET_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace qsbase::fuzz {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : _rest(reinterpret_cast<const char*>(data), size) {}

  /// The next parameter, 0 when there is none left.
  unsigned int Parameter() {
    if (_rest.empty()) {
      return 0;
    }
    const auto value = static_cast<unsigned char>(_rest.back());
    _rest.remove_suffix(1);
    return value;
  }

  /// What the parameters have left.
  std::string_view Rest() const { return _rest; }

 private:
  std::string_view _rest;
};

/// Ends the program with what a comparison found; goes on for an empty text.
inline void Demand(const std::string& difference) {
  if (!difference.empty()) {
    std::fprintf(stderr, "%s\n", difference.c_str());
    std::abort();
  }
}

inline void DemandEqual(std::string_view expected, std::string_view actual, const char* what) {
  Demand(expected == actual ? "" : std::string(what) + " does not come back");
}

}  // namespace qsbase::fuzz

#endif
