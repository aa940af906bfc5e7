#include <QSbase/sync/lock.h>

#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

// All its bits are 0 from the start, which is how SRWLOCK_INIT leaves it.
static_assert(sizeof(SRWLOCK) == sizeof(void*) && alignof(SRWLOCK) == alignof(void*));

void Lock::lock() noexcept { AcquireSRWLockExclusive(reinterpret_cast<SRWLOCK*>(&_lock)); }

bool Lock::try_lock() noexcept { return TryAcquireSRWLockExclusive(reinterpret_cast<SRWLOCK*>(&_lock)) != 0; }

void Lock::unlock() noexcept { ReleaseSRWLockExclusive(reinterpret_cast<SRWLOCK*>(&_lock)); }

}  // namespace qsbase::detail
