// A host without the import library: loads the DLL at run time, calls a function by its exported name, unloads it.
#include <windows.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: loadlibrary DLL\n");
    return 2;
  }
  const HMODULE library = LoadLibraryA(argv[1]);
  if (library == nullptr) {
    std::printf("LoadLibrary: error %lu\n", GetLastError());
    return 1;
  }
  const auto address = reinterpret_cast<void*>(GetProcAddress(library, "_Z21QsGetCurrentProcessIdv"));
  if (address == nullptr) {
    std::printf("GetProcAddress: error %lu\n", GetLastError());
    return 1;
  }
  const int id = reinterpret_cast<int (*)()>(address)();
  const bool good = id == static_cast<int>(GetCurrentProcessId()) && FreeLibrary(library) != FALSE;
  std::printf("loaded at run time: %s\n", good ? "ok" : "WRONG");
  return good ? 0 : 1;
}
