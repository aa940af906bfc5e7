#include <QSbase/startup.h>

#include <QSbase/immortal.h>
#include <QSbase/killguard.h>
#include <QSbase/net/http.h>
#include <QSbase/net/socket.h>
#include <QSbase/support/libxmlsupport.h>
#include <QSbase/sync/criticalsection.h>

namespace {

using qsbase::detail::Immortal;
using qsbase::detail::KillGuard;

enum class State { NotStarted, Starting, Started };

State state = State::NotStarted;  // guarded by StartLock()

/// Recursive: what the hooks log reaches the host's callbacks, which may call here.
QsCriticalSection& StartLock() {
  static Immortal<QsCriticalSection> lock;
  return lock.value;
}

void RunHooks() {
  InitQsThread(1);
  InitXML(1);
  InitQsSocket(1);
  InitQsInetHttp(1);
}

void Start() {
  if (state != State::NotStarted) {
    return;
  }
  state = State::Starting;
  try {
    RunHooks();
  } catch (...) {
    state = State::NotStarted;
    throw;
  }
  state = State::Started;
}

void Stop() {
  InitQsInetHttp(2);
  InitQsSocket(2);
  InitXML(2);
  InitQsThread(2);
}

}  // namespace

void InitBase(int phase, const std::string& /*parameter*/) {
  if (phase != 1 && phase != 2) {
    return;
  }
  const KillGuard untilDone;  // nobody could start the rest
  const QsCriticalSectionAutoPtr guard(&StartLock());
  if (phase == 1) {
    Start();
  } else {
    Stop();
  }
}

void InitQsThread(int /*phase*/) {}
