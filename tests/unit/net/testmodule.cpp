// What the tests of the library loader load.
#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>
#define EXPORTED extern "C" __declspec(dllexport)
#else
#define EXPORTED extern "C" __attribute__((visibility("default")))
#endif

EXPORTED int Answer() { return 42; }

EXPORTED int number;
int number = 7;

#ifdef _WIN32
namespace {

unsigned int modeAtLoad = 0;

}  // namespace

EXPORTED unsigned int ModeAtLoad() { return modeAtLoad; }

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*) {
  if (reason == DLL_PROCESS_ATTACH) {
    modeAtLoad = GetErrorMode();
  }
  return TRUE;
}
#endif
