/// \file
/// Keeps a write to a broken connection from ending the process. Internal; seam to the operating system.
#ifndef QSBASE_NET_SIGPIPEGUARD_H
#define QSBASE_NET_SIGPIPEGUARD_H

namespace qsbase::detail {

/// While it lives, a SIGPIPE that the calling thread causes is held back; the destructor drops it and gives the thread
/// its signal mask back. A SIGPIPE that was pending before stays pending. Other threads and the handler of the process
/// are never touched. Constructor and destructor run on the same thread, keep the last error and never fail: where
/// there is no such signal, or the mask cannot be read, the guard does nothing.
class SigpipeGuard {
 public:
  SigpipeGuard() noexcept;
  ~SigpipeGuard();  // NOLINT(performance-trivially-destructible): it is not where there is a signal
  SigpipeGuard(const SigpipeGuard&) = delete;
  SigpipeGuard& operator=(const SigpipeGuard&) = delete;

 private:
  bool _drop = false;
  bool _unblock = false;
};

}  // namespace qsbase::detail

#endif
