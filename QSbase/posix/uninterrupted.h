/// \file
/// System calls that signals interrupt (internal).
#ifndef QSBASE_POSIX_UNINTERRUPTED_H
#define QSBASE_POSIX_UNINTERRUPTED_H

#include <cerrno>

namespace qsbase::detail {

/// Makes the call again while a signal interrupts it.
template <class Call>
auto Uninterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) {
    result = call();
  }
  return result;
}

}  // namespace qsbase::detail

#endif
