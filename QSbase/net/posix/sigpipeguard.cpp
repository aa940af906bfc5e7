#include <QSbase/net/sigpipeguard.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace qsbase::detail {

namespace {

sigset_t OnlySigpipe() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  return set;
}

bool SigpipePending() {
  sigset_t pending;
  sigemptyset(&pending);
  return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

SigpipeGuard::SigpipeGuard() noexcept {
  if (SigpipePending()) {
    return;  // blocked by the host already; a second one would merge with it
  }
  const sigset_t set = OnlySigpipe();
  sigset_t before;
  if (pthread_sigmask(SIG_BLOCK, &set, &before) != 0) {
    return;
  }
  _drop = true;
  _unblock = sigismember(&before, SIGPIPE) == 0;
}

SigpipeGuard::~SigpipeGuard() {
  const int error = errno;
  const sigset_t set = OnlySigpipe();
  if (_drop && SigpipePending()) {
    const timespec atOnce{};
    while (sigtimedwait(&set, nullptr, &atOnce) == -1 && errno == EINTR) {
    }
  }
  if (_unblock) {
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  }
  errno = error;
}

}  // namespace qsbase::detail
