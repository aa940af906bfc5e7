/// \file
/// A value for a static variable that is never destroyed, so that threads and destructors that run during process end
/// still find it.
#ifndef QSBASE_IMMORTAL_H
#define QSBASE_IMMORTAL_H

#include <utility>

namespace qsbase::detail {

template <typename T>
union Immortal {
  template <typename... Arguments>
  explicit Immortal(Arguments&&... arguments) : value(std::forward<Arguments>(arguments)...) {}
  ~Immortal() {}
  Immortal(const Immortal&) = delete;
  Immortal& operator=(const Immortal&) = delete;

  T value;
};

}  // namespace qsbase::detail

#endif
