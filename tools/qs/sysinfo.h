/// \file
/// qs sysinfo: what the machine is and has.
#ifndef QS_SYSINFO_H
#define QS_SYSINFO_H

namespace qs {

/// Prints one line a fact; what the system does not tell is left out. \returns the program's exit code.
int RunSysinfo();

}  // namespace qs

#endif
