#include "interrupt.h"

#include <atomic>

#include "interruptos.h"

namespace qs {
namespace {

std::atomic<int> receivedSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may write it only then");

extern "C" void NoteSignal(int number) { receivedSignal.store(number); }

}  // namespace

void CatchInterrupts() { NoteSignals(&NoteSignal); }

bool Interrupted() { return receivedSignal.load() != 0; }

int InterruptExitCode() { return 128 + receivedSignal.load(); }

}  // namespace qs
