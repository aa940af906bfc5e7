#include <QSbase/net/sigpipeguard.h>

namespace qsbase::detail {

// A write to a broken connection fails here; no signal comes of it.

SigpipeGuard::SigpipeGuard() noexcept = default;

SigpipeGuard::~SigpipeGuard() = default;

}  // namespace qsbase::detail
