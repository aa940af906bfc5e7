/// \file
/// How the operating system tells the program to stop. Twins: posix/interruptos.cpp, win32/interruptos.cpp.
#ifndef QS_INTERRUPTOS_H
#define QS_INTERRUPTOS_H

namespace qs {

/// Takes a signal's number. Runs inside a signal handler or on a thread of its own, so that it may do no more than
/// write a lock-free atomic.
using SignalNote = void (*)(int number);

/// From now on note is called instead of ending the process: with SIGINT for Ctrl-C (and Ctrl-Break), with SIGTERM for
/// the request to end. Where the system ends the process soon after a request, the process has a few seconds left to
/// end by itself.
void NoteSignals(SignalNote note);

}  // namespace qs

#endif
