/// \file
/// Keeps the calling thread's last-error code over a scope, also when an exception leaves it.
#ifndef QSBASE_LASTERRORGUARD_H
#define QSBASE_LASTERRORGUARD_H

#include <QSbase/errorsos.h>

namespace qsbase::detail {

class LastErrorGuard {
 public:
  LastErrorGuard() noexcept : _code(OsGetLastError()) {}
  ~LastErrorGuard() { OsSetLastError(_code); }
  LastErrorGuard(const LastErrorGuard&) = delete;
  LastErrorGuard& operator=(const LastErrorGuard&) = delete;

 private:
  int _code;
};

}  // namespace qsbase::detail

#endif
