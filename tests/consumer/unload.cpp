// A host that loads a plug-in with the library, has it log to a file, and unloads it: the lines are in the file then,
// and nobody has it open.
#include <windows.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace {

constexpr const char* kLogFile = "plugin.log";

bool LogAndUnload(const char* plugin) {
  const HMODULE library = LoadLibraryA(plugin);
  if (library == nullptr) {
    std::printf("LoadLibrary: error %lu\n", GetLastError());
    return false;
  }
  const auto address = reinterpret_cast<void*>(GetProcAddress(library, "Log"));
  if (address == nullptr) {
    std::printf("GetProcAddress: error %lu\n", GetLastError());
    return false;
  }
  reinterpret_cast<void (*)()>(address)();
  return FreeLibrary(library) != FALSE && GetModuleHandleA(plugin) == nullptr;
}

std::string Content(const char* path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool Check(const char* what, bool good) {
  std::printf("%-40s %s\n", what, good ? "ok" : "WRONG");
  return good;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: unload DLL\n");
    return 2;
  }
  bool good = true;
  for (int round = 0; round < 3; ++round) {
    good = Check("loaded, used and unloaded", LogAndUnload(argv[1])) && good;
    const std::string log = Content(kLogFile);
    good = Check("its lines are in the log file", log.find("of another thread") != std::string::npos) && good;
    good = Check("nobody has the log file open", DeleteFileA(kLogFile) != FALSE) && good;
  }
  return good ? 0 : 1;
}
