#include <QSbase/sync/semaphoreos.h>

#include <QSbase/sync/win32/handlewait.h>
#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

namespace {

class HandleSemaphore : public SemaphoreOs {
 public:
  explicit HandleSemaphore(HANDLE handle) noexcept : _handle(handle) {}
  ~HandleSemaphore() override { CloseHandle(_handle); }

  bool Release(int count, int& previousCount) noexcept override {
    LONG previous = 0;
    if (ReleaseSemaphore(_handle, count, &previous) == 0) {
      return false;
    }
    previousCount = static_cast<int>(previous);
    return true;
  }

  WaitResult Wait(int timeoutMs) noexcept override { return WaitForHandle(_handle, timeoutMs); }

 private:
  HANDLE _handle;
};

}  // namespace

std::unique_ptr<SemaphoreOs> SemaphoreOs::Make(int initialCount, int maximumCount) noexcept {
  return AdoptHandle<HandleSemaphore>(CreateSemaphoreA(nullptr, initialCount, maximumCount, nullptr));
}

}  // namespace qsbase::detail
