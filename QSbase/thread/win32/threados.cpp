#include <QSbase/thread/threados.h>

#include <QSbase/win32/windowsapi.h>

#include <atomic>

namespace qsbase::detail {

namespace {

/// What has become of a thread. Killed is also one that is about to be.
enum class Fate { Runs, Returned, Killed };

}  // namespace

struct OsThreadNative {
  OsThreadBody body;
  std::atomic<HANDLE> handle{nullptr};
  std::atomic<DWORD> id{0};
  std::atomic<Fate> fate{Fate::Runs};
};

namespace {

/// From now on nobody ends the thread. What follows frees memory and runs inside the loader's lock, which would stay
/// locked. When somebody is about to end it, that happens here.
void PassKilling(OsThreadNative& native) {
  Fate found = Fate::Runs;
  while (!native.fate.compare_exchange_strong(found, Fate::Returned)) {
    Sleep(1);
    found = Fate::Runs;
  }
}

/// Returning ends the thread with exit code 0 like ExitThread(0), but after the destructors of what it holds.
DWORD WINAPI RunThread(void* argument) {
  OsThreadNative& native = *static_cast<OsThreadNative*>(argument);
  const OsThreadBody body = native.body;
  body.run(body.context);
  PassKilling(native);
  body.release(body.context);
  return 0;
}

bool HasTerminated(HANDLE handle, DWORD milliseconds) {
  return WaitForSingleObject(handle, milliseconds) == WAIT_OBJECT_0;
}

constexpr DWORD kKillExitCode = 10;

}  // namespace

OsThread::OsThread() : _native(std::make_unique<OsThreadNative>()) {}

OsThread::~OsThread() {
  if (_native->handle != nullptr) {
    CloseHandle(_native->handle);
  }
}

/// The thread sets out when its handle can be seen, so that its body may use it.
bool OsThread::Start(const OsThreadBody& body) {
  _native->body = body;
  DWORD id = 0;
  const HANDLE handle = CreateThread(nullptr, 0, &RunThread, _native.get(), CREATE_SUSPENDED, &id);
  if (handle == nullptr) {
    return false;
  }
  _native->id = id;
  _native->handle = handle;
  ResumeThread(handle);
  return true;
}

bool OsThread::IsStarted() const noexcept { return _native->handle != nullptr; }

bool OsThread::HasEnded() const noexcept { return IsStarted() && HasTerminated(_native->handle, 0); }

bool OsThread::WasKilled() const noexcept { return _native->fate == Fate::Killed && HasEnded(); }

bool OsThread::IsCurrent() const noexcept { return IsStarted() && _native->id == GetCurrentThreadId(); }

unsigned int OsThread::Wait(int timeoutMs) {
  return WaitForSingleObject(_native->handle, timeoutMs < 0 ? INFINITE : static_cast<DWORD>(timeoutMs));
}

/// The system ends the thread some time after it has said so. One that has returned, or that another thread kills, ends
/// anyway.
bool OsThread::Kill() {
  constexpr DWORD kLimitMs = 2000;
  Fate found = Fate::Runs;
  const bool ours = _native->fate.compare_exchange_strong(found, Fate::Killed);
  if (ours && TerminateThread(_native->handle, kKillExitCode) == 0) {
    _native->fate = Fate::Runs;
    return false;
  }
  if (!HasTerminated(_native->handle, kLimitMs)) {
    SetLastError(ERROR_TIMEOUT);
    return false;
  }
  return true;
}

void OsThread::KillCurrent() noexcept {
  _native->fate = Fate::Killed;
  for (;;) {
    TerminateThread(GetCurrentThread(), kKillExitCode);
  }
}

bool OsThread::SetPriority(int priority) { return SetThreadPriority(_native->handle, priority) != 0; }

int OsThread::GetPriority() const { return GetThreadPriority(_native->handle); }

bool OsSetCurrentPriority(int priority) { return SetThreadPriority(GetCurrentThread(), priority) != 0; }

int OsGetCurrentPriority() { return GetThreadPriority(GetCurrentThread()); }

/// The call came with Windows 10.
void OsSetCurrentThreadName(const std::string& name) {
  using SetDescription = HRESULT(WINAPI*)(HANDLE, const wchar_t*);
  const FARPROC found = GetProcAddress(GetModuleHandleA("kernel32.dll"), "SetThreadDescription");
  const int length = MultiByteToWideChar(CP_ACP, 0, name.c_str(), -1, nullptr, 0);
  if (found == nullptr || length <= 0) {
    return;
  }
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_ACP, 0, name.c_str(), -1, wide.data(), length);
  reinterpret_cast<SetDescription>(reinterpret_cast<void*>(found))(GetCurrentThread(), wide.c_str());
}

}  // namespace qsbase::detail
