#include <QSbase/sync/sectionlock.h>

#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

namespace {

CRITICAL_SECTION* Section(void* storage) { return static_cast<CRITICAL_SECTION*>(storage); }

}  // namespace

SectionLock::SectionLock() noexcept {
  static_assert(sizeof(CRITICAL_SECTION) == sizeof(Storage) && alignof(CRITICAL_SECTION) == alignof(Storage));
  InitializeCriticalSection(Section(&_storage));
}

SectionLock::~SectionLock() { DeleteCriticalSection(Section(&_storage)); }

void SectionLock::lock() noexcept { EnterCriticalSection(Section(&_storage)); }

void SectionLock::unlock() noexcept { LeaveCriticalSection(Section(&_storage)); }

}  // namespace qsbase::detail
