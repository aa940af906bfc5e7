#include <QSbase/sync/globalmutexos.h>

#include <new>

#include <QSbase/allocationerror.h>
#include <QSbase/errors.h>
#include <QSbase/lasterrorguard.h>
#include <QSbase/log/logwords.h>
#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

namespace {

constexpr DWORD kPatienceMs = 100;

// A null access list grants everyone everything, so that processes of other users can open the mutex.
std::unique_ptr<SECURITY_DESCRIPTOR> EveryonesDescriptor(const std::string& name) {
  constexpr int kLine = 82;  // part of the text, wherever this stands
  std::unique_ptr<SECURITY_DESCRIPTOR> descriptor(new (std::nothrow) SECURITY_DESCRIPTOR);
  if (!descriptor) {
    ThrowAllocationError("SECURITY_DESCRIPTOR", "QSbase/sync/win32/globalmutexos", kLine);
  }
  if (InitializeSecurityDescriptor(descriptor.get(), SECURITY_DESCRIPTOR_REVISION) == 0) {
    throw ExBase("GlobalMutex " + name + " cannot initialize security descriptor: " + LastErrorText());
  }
  if (SetSecurityDescriptorDacl(descriptor.get(), TRUE, nullptr, FALSE) == 0) {
    throw ExBase("GlobalMutex " + name + " cannot set security descriptor dacl: " + LastErrorText());
  }
  return descriptor;
}

}  // namespace

/// The mutex, owned by the thread that took it.
struct GlobalMutexOs::Handle {
  std::unique_ptr<SECURITY_DESCRIPTOR> descriptor;
  HANDLE mutex = nullptr;

  ~Handle() {
    if (mutex != nullptr) {
      const LastErrorGuard keep;
      CloseHandle(mutex);
    }
  }
};

GlobalMutexOs::GlobalMutexOs() noexcept = default;

GlobalMutexOs::~GlobalMutexOs() { Release(); }

GlobalMutexAttempt GlobalMutexOs::TryTake(const std::string& name) {
  auto handle = std::make_unique<Handle>();
  handle->descriptor = EveryonesDescriptor(name);
  SECURITY_ATTRIBUTES attributes = {sizeof(SECURITY_ATTRIBUTES), handle->descriptor.get(), TRUE};
  handle->mutex = CreateMutexA(&attributes, FALSE, name.c_str());
  if (handle->mutex == nullptr) {
    return GlobalMutexAttempt::Failed;
  }
  // One that is there already counts as taken, whether somebody holds it or not.
  if (GetLastError() == ERROR_ALREADY_EXISTS || WaitForSingleObject(handle->mutex, kPatienceMs) == WAIT_TIMEOUT) {
    return GlobalMutexAttempt::Busy;
  }
  _handle = std::move(handle);
  return GlobalMutexAttempt::Taken;
}

bool GlobalMutexOs::IsHeld() const noexcept { return _handle != nullptr; }

bool GlobalMutexOs::Release() noexcept {
  const bool isReleased = !_handle || ReleaseMutex(_handle->mutex) != 0;
  _handle.reset();
  return isReleased;
}

// The version is that of a system which programs without a manifest are told: 6.2 at most.
bool HasGlobalNamespace() noexcept {
  static const bool result = [] {
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof version;
    return GetVersionExA(&version) != 0 && version.dwPlatformId == VER_PLATFORM_WIN32_NT && version.dwMajorVersion > 4;
  }();
  return result;
}

}  // namespace qsbase::detail
