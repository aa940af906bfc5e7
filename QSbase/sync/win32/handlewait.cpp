#include <QSbase/sync/win32/handlewait.h>

#include <chrono>

namespace qsbase::detail {

namespace {

WaitResult WaitOnce(HANDLE handle, DWORD milliseconds) {
  switch (WaitForSingleObject(handle, milliseconds)) {
    case WAIT_OBJECT_0:
      return WaitResult::Signaled;
    case WAIT_ABANDONED:
      return WaitResult::Abandoned;
    case WAIT_TIMEOUT:
      return WaitResult::Timeout;
    default:
      return WaitResult::Failed;
  }
}

}  // namespace

WaitResult WaitForHandle(HANDLE handle, int timeoutMs) noexcept {
  if (timeoutMs <= 0) {
    return WaitOnce(handle, timeoutMs < 0 ? INFINITE : 0);
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  auto left = std::chrono::milliseconds(timeoutMs);
  WaitResult result = WaitResult::Timeout;
  while (result == WaitResult::Timeout && left.count() > 0) {
    result = WaitOnce(handle, static_cast<DWORD>(left.count()));
    left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
  }
  return result;
}

}  // namespace qsbase::detail
