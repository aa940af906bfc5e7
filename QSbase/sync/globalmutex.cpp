#include <QSbase/sync/globalmutex.h>

#include <algorithm>
#include <exception>
#include <new>

#include <QSbase/allocationerror.h>
#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/sync/globalmutexos.h>
#include <QSbase/text/qsstring.h>

using qsbase::detail::GlobalMutexAttempt;
using qsbase::detail::GlobalMutexName;
using qsbase::detail::GlobalMutexOs;
using qsbase::detail::HasGlobalNamespace;
using qsbase::detail::kLogError;
using qsbase::detail::kLogInfo4;
using qsbase::detail::kLogWarning;
using qsbase::detail::LastErrorText;

namespace qsbase::detail {

std::string GlobalMutexName(const std::string& name, bool hasGlobalNamespace) {
  std::string result = name;
  std::replace(result.begin(), result.end(), '\\', '/');
  QsString::ToUpper_Inplace(result);
  return (hasGlobalNamespace ? "Global\\" : "Global\\Global-") + result;
}

}  // namespace qsbase::detail

namespace {

void LogRefusal(const std::string& name, const char* what) {
  const std::string reason = LastErrorText();
  QsLogMsg(kLogError, "GlobalMutex " + name + what + reason);
}

void LogException(const std::string& name, const std::string& text) {
  QsLogMsg(kLogError, "GlobalMutex::Enter " + name + " >>> " + text);
}

}  // namespace

struct GlobalMutex::Impl {
  GlobalMutexOs mutex;
  std::string name;

  static std::unique_ptr<Impl> Make(std::string name) {
    constexpr int kLine = 25;  // part of the text, wherever this stands
    std::unique_ptr<Impl> impl(new (std::nothrow) Impl);
    if (!impl) {
      qsbase::detail::ThrowAllocationError("GlobalMutex::GlobalMutex (GlobalMutexImpl", "QSbase/sync/globalmutex",
                                           kLine);
    }
    impl->name = std::move(name);
    return impl;
  }

  bool Take() {
    const GlobalMutexAttempt attempt = mutex.TryTake(name);
    if (attempt == GlobalMutexAttempt::Failed) {
      LogRefusal(name, " cannot create mutex: ");
    }
    return attempt == GlobalMutexAttempt::Taken;
  }
};

GlobalMutex::GlobalMutex(const std::string& name) : _impl(Impl::Make(GlobalMutexName(name, HasGlobalNamespace()))) {}

GlobalMutex::GlobalMutex(const GlobalMutex& other) : _impl(Impl::Make(other._impl->name)) {}

GlobalMutex& GlobalMutex::operator=(const GlobalMutex& other) {
  if (this != &other) {
    std::string name = other._impl->name;
    LeaveIfOwned();
    _impl->name = std::move(name);
  }
  return *this;
}

GlobalMutex::~GlobalMutex() { LeaveIfOwned(); }

bool GlobalMutex::Enter() {
  if (!_impl) {
    throw ExPrecondition("GlobalMutex::Enter: _impl is NULL");
  }
  QsLogMsg(kLogInfo4, "Entering global mutex " + _impl->name);
  if (_impl->mutex.IsHeld()) {
    QsLogMsg(kLogWarning, "GlobalMutex::Enter " + _impl->name + " already owner!");
    return true;
  }
  try {
    return _impl->Take();
  } catch (const ExBase& error) {
    LogException(_impl->name, error.GetErrorText());
  } catch (const std::exception& error) {
    LogException(_impl->name, std::string("std::exception: ") + error.what());
  }
  return false;
}

bool GlobalMutex::Leave() {
  if (!_impl) {
    throw ExPrecondition("GlobalMutex::Leave: _impl is NULL");
  }
  QsLogMsg(kLogInfo4, "Leaving global mutex " + _impl->name);
  if (_impl->mutex.Release()) {
    return true;
  }
  LogRefusal(_impl->name, " cannot release mutex: ");
  return false;
}

void GlobalMutex::LeaveIfOwned() noexcept {
  if (!_impl || !_impl->mutex.IsHeld()) {
    return;
  }
  try {
    Leave();
  } catch (...) {  // what a log callback throws; a destructor lets nothing out
  }
  _impl->mutex.Release();
}
