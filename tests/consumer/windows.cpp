// What only a Windows host asks of the package: <windows.h> on both sides of the headers, and one C++ runtime for the
// DLL and the program.
#ifdef WINDOWS_H_LAST
#include <QSbase/qsbase.h>

#include <windows.h>
#else
#include <windows.h>

#include <QSbase/qsbase.h>
#endif

#include <cstdio>
#include <exception>
#include <string>

namespace {

int failures = 0;

void Check(const char* what, bool good) {
  std::printf("%-40s %s\n", what, good ? "ok" : "WRONG");
  failures += good ? 0 : 1;
}

// Counts what is in flight while the stack unwinds.
struct Witness {
  ~Witness() { inFlight = std::uncaught_exceptions(); }
  int& inFlight;
};

void ThrownAcrossTheBorder() {
  int inFlight = 0;
  std::string text;
  try {
    const Witness witness{inFlight};
    HexToByte(nullptr);
  } catch (const ExBase& error) {
    text = error.GetErrorText();
  }
  Check("caught by its base", text == "HexToByte called with invalid parameter (NULL)");
  Check("one exception in flight", inFlight == 1);
  Check("none afterwards", std::uncaught_exceptions() == 0);
}

void KeptAndThrownAgain() {
  std::exception_ptr kept;
  try {
    HexToByte(nullptr);
  } catch (...) {
    kept = std::current_exception();
  }
  bool caught = false;
  try {
    std::rethrow_exception(kept);
  } catch (const ExBase&) {
    caught = true;
  }
  Check("thrown again by the host", caught);
}

// Longer than what a string holds in itself: allocated there, released here, and the other way round.
void StringsAcrossTheBorder() {
  const std::string data(100, 'x');
  std::string text;
  std::string back;
  QsBase64Encode(data.data(), 100, text);
  QsBase64Decode(text.data(), static_cast<unsigned int>(text.size()), back);
  Check("strings grown by the DLL", text.size() > 100 && back == data);
  Check("a string returned by the DLL", QsString::ToUpper(std::string(1000, 'a')) == std::string(1000, 'A'));
}

void LastError() {
  SetLastError(ERROR_SHARING_VIOLATION);
  Check("the last error is the system's", QsGetLastError() == ERROR_SHARING_VIOLATION);
  QsLogMsg(0, std::string("a line"));
  Check("logging keeps it", GetLastError() == ERROR_SHARING_VIOLATION);
}

void Module() {
  char name[MAX_PATH] = "";
  GetModuleFileNameA(nullptr, name, sizeof name);
  QsSetApplication(nullptr);
  Check("the program's own path", QsGetApplicationFilename() == name);
}

}  // namespace

int main() {
  ThrownAcrossTheBorder();
  KeptAndThrownAgain();
  StringsAcrossTheBorder();
  LastError();
  Module();
  return failures == 0 ? 0 : 1;
}
