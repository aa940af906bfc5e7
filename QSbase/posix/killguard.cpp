#include <QSbase/killguard.h>

#include <sys/syscall.h>
#include <unistd.h>

namespace qsbase::detail {

constinit thread_local KillState killState;

void EndKilledThread() noexcept {
  for (;;) {
    syscall(SYS_exit, 10);
  }
}

}  // namespace qsbase::detail
