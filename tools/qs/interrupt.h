/// \file
/// Ctrl-C as a flag that transfers ask for.
#ifndef QS_INTERRUPT_H
#define QS_INTERRUPT_H

namespace qs {

/// From now on SIGINT and SIGTERM set the flag instead of ending the process.
void CatchInterrupts();
/// True once one of them has come. Any thread may ask.
bool Interrupted();
/// The exit code for it: 128 and the signal's number, 130 for Ctrl-C.
int InterruptExitCode();

}  // namespace qs

#endif
