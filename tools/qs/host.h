/// \file
/// qs host: names, user and network adapters of this machine, or the addresses of a name.
#ifndef QS_HOST_H
#define QS_HOST_H

#include <optional>
#include <string>

namespace qs {

struct HostOptions {
  std::optional<std::string> name;  ///< none: this machine
};

/// Writes what it finds, a name's addresses one a line. InitBase() has started the library. Gives
/// the exit code.
int RunHost(const HostOptions& options);

}  // namespace qs

#endif
