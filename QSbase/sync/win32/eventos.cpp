#include <QSbase/sync/eventos.h>

#include <QSbase/sync/win32/handlewait.h>
#include <QSbase/win32/windowsapi.h>

#include <new>

namespace qsbase::detail {

namespace {

class HandleEvent : public EventOs {
 public:
  explicit HandleEvent(HANDLE handle) noexcept : _handle(handle) {}
  ~HandleEvent() override { CloseHandle(_handle); }

  void Set() noexcept override { ::SetEvent(_handle); }
  void Reset() noexcept override { ::ResetEvent(_handle); }
  WaitResult Wait(int timeoutMs) noexcept override { return WaitForHandle(_handle, timeoutMs); }

 private:
  HANDLE _handle;
};

// Owns the handle from here on; null has none.
std::unique_ptr<EventOs> Adopt(HANDLE handle) {
  if (handle == nullptr) {
    return nullptr;
  }
  std::unique_ptr<EventOs> event(new (std::nothrow) HandleEvent(handle));
  if (!event) {
    CloseHandle(handle);
  }
  return event;
}

}  // namespace

std::unique_ptr<EventOs> EventOs::Make(bool manualReset, bool initialState) noexcept {
  return Adopt(CreateEventA(nullptr, manualReset ? TRUE : FALSE, initialState ? TRUE : FALSE, nullptr));
}

}  // namespace qsbase::detail
