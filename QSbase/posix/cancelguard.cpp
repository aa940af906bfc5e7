#include <QSbase/cancelguard.h>

#include <pthread.h>

namespace qsbase::detail {

CancelGuard::CancelGuard() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &_before); }

CancelGuard::~CancelGuard() { pthread_setcancelstate(_before, nullptr); }

}  // namespace qsbase::detail
