#include "../interruptos.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <atomic>
#include <csignal>

namespace qs {
namespace {

std::atomic<SignalNote> signalNote{nullptr};

// Runs on a thread that the system makes for it. The C runtime's signal() would forget the handler after one Ctrl-C.
BOOL WINAPI HandleControl(DWORD event) {
  const SignalNote note = signalNote;
  if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) {
    note(SIGINT);
    return TRUE;
  }
  // The console goes, or the session: the process ends when this returns. So it does not; the main thread ends the
  // process, or after some seconds the system.
  note(SIGTERM);
  Sleep(INFINITE);
  return TRUE;
}

}  // namespace

void NoteSignals(SignalNote note) {
  signalNote = note;
  SetConsoleCtrlHandler(&HandleControl, TRUE);
}

}  // namespace qs
