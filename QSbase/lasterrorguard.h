/// \file
/// Keeps the calling thread's last-error code over a scope, also when an exception leaves it; errno too, where that is
/// a value of its own.
#ifndef QSBASE_LASTERRORGUARD_H
#define QSBASE_LASTERRORGUARD_H

#include <cerrno>

#include <QSbase/errorsos.h>

namespace qsbase::detail {

class LastErrorGuard {
 public:
  LastErrorGuard() noexcept : _code(OsGetLastError()), _libraryCode(errno) {}
  ~LastErrorGuard() {
    errno = _libraryCode;
    OsSetLastError(_code);
  }
  LastErrorGuard(const LastErrorGuard&) = delete;
  LastErrorGuard& operator=(const LastErrorGuard&) = delete;

 private:
  int _code;
  int _libraryCode;
};

}  // namespace qsbase::detail

#endif
