/// \file
/// Holds back `pthread_cancel` on the calling thread over a scope that nothing may unwind: a cancellation passes as an
/// exception which must not be swallowed, nor leave a destructor or a function that is noexcept. On Linux in
/// posix/cancelguard.cpp.
#ifndef QSBASE_CANCELGUARD_H
#define QSBASE_CANCELGUARD_H

namespace qsbase::detail {

/// While it lives, no request of the host to cancel the calling thread takes effect. Windows has no such thing.
class CancelGuard {
 public:
#ifdef _WIN32
  CancelGuard() noexcept {}
  ~CancelGuard() {}
#else
  CancelGuard() noexcept;
  ~CancelGuard();
#endif
  CancelGuard(const CancelGuard&) = delete;
  CancelGuard& operator=(const CancelGuard&) = delete;

#ifndef _WIN32
 private:
  int _before = 0;
#endif
};

}  // namespace qsbase::detail

#endif
