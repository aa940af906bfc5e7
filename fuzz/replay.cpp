/// \file
/// Runs a fuzz target over the files of the folders that are named: what libFuzzer would begin with, without libFuzzer.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "target.h"

namespace {

std::string ContentOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void Run(const std::string& input) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
}

}  // namespace

int main(int argumentCount, char** arguments) {
  int count = 0;
  for (int i = 1; i < argumentCount; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
      std::fprintf(stderr, "%s\n", entry.path().filename().string().c_str());  // stands last when the target aborts
      Run(ContentOf(entry.path()));
      ++count;
    }
  }
  std::fprintf(stderr, "%d files\n", count);
  return count == 0 ? 1 : 0;
}
