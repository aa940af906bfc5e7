#include <QSbase/sync/eventos.h>

#include <QSbase/sync/win32/handlewait.h>
#include <QSbase/win32/windowsapi.h>

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

/// Anyone may open the object, and child processes inherit the handle.
class EveryonesSecurity {
 public:
  EveryonesSecurity() noexcept
      : _isMade(InitializeSecurityDescriptor(&_descriptor, SECURITY_DESCRIPTOR_REVISION) != 0 &&
                SetSecurityDescriptorDacl(&_descriptor, TRUE, nullptr, FALSE) != 0),
        _attributes{sizeof(_attributes), &_descriptor, TRUE} {}

  /// Null, which is the default security, when the system does not make it.
  SECURITY_ATTRIBUTES* Attributes() noexcept { return _isMade ? &_attributes : nullptr; }

 private:
  SECURITY_DESCRIPTOR _descriptor;
  bool _isMade;
  SECURITY_ATTRIBUTES _attributes;
};

}  // namespace

std::unique_ptr<EventOs> EventOs::Make(bool manualReset, bool initialState) noexcept {
  return AdoptHandle<HandleEvent>(
      CreateEventA(nullptr, manualReset ? TRUE : FALSE, initialState ? TRUE : FALSE, nullptr));
}

std::unique_ptr<EventOs> EventOs::MakeNamed(bool manualReset, bool initialState, const char* name,
                                            bool everyone) noexcept {
  EveryonesSecurity security;
  SECURITY_ATTRIBUTES* const attributes = everyone ? security.Attributes() : nullptr;
  return AdoptHandle<HandleEvent>(
      CreateEventA(attributes, manualReset ? TRUE : FALSE, initialState ? TRUE : FALSE, name));
}

}  // namespace qsbase::detail
