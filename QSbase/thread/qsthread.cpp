#include <QSbase/thread/qsthread.h>

#include <QSbase/allocationerror.h>
#include <QSbase/cancelguard.h>
#include <QSbase/errors.h>
#include <QSbase/immortal.h>
#include <QSbase/killguard.h>
#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/process.h>
#include <QSbase/processos.h>
#include <QSbase/sync/lock.h>
#include <QSbase/text/qschar.h>
#include <QSbase/thread/qsthreadimpl.h>

#include <algorithm>
#include <array>
#include <exception>
#include <mutex>
#include <new>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

using qsbase::detail::CancelGuard;
using qsbase::detail::kLogError;
using qsbase::detail::kLogInfo1;
using qsbase::detail::kLogInfo4;
using qsbase::detail::kLogWarning;
using qsbase::detail::LastErrorText;
using qsbase::detail::Lock;
using qsbase::detail::ThrowAllocationError;

namespace {

bool IsVerbose() { return QsGetLogLevel() >= 4; }

QsThreadImpl& Require(const std::shared_ptr<QsThreadImpl>& impl, const char* operation) {
  if (!impl) {
    throw ExPrecondition(std::string("QsThread::") + operation + ": _impl is NULL!");
  }
  return *impl;
}

// ---- what is thrown on the way --------------------------------------------------------------------------------------

/// Inside a handler: goes on with what ends the thread from inside, `pthread_exit` or a cancellation by the host. That
/// passes as an exception that is none of C++.
void LetThreadEnd() {
  if (std::current_exception() == nullptr) {
    throw;
  }
}

/// Runs \p step, whatever a host's log callback or the memory does. Lets only through what ends the thread from inside.
template <typename Step>
void Quietly(Step step) {
  try {
    step();
  } catch (...) {
    LetThreadEnd();  // otherwise there is nobody left to tell
  }
}

void LogCaught(const char* prefix, const std::string& name, const std::string& text) {
  QsLogMsg(kLogError, prefix + name + ") " + " >>> " + text);
}

/// Runs a step of a thread and logs what it throws.
template <typename Step>
void LoggingExceptions(const char* prefix, const std::string& name, Step step) {
  Quietly([&] {
    try {
      step();
    } catch (const ExBase& error) {
      LogCaught(prefix, name, error.GetErrorText());
    } catch (const std::exception& error) {
      LogCaught(prefix, name, std::string("std::exception: ") + error.what());
    } catch (...) {
      LetThreadEnd();
      LogCaught(prefix, name, "unknown exception");
    }
  });
}

// ---- the list of threads --------------------------------------------------------------------------------------------

struct RegistryEntry {
  const QsThread* thread;  // to find it again; not looked into
  std::shared_ptr<QsThreadImpl> impl;
};

// Threads may come and go while static objects are destroyed.
constinit Lock registryLock;

/// Under the lock.
std::vector<RegistryEntry>& Registry() {
  static qsbase::detail::Immortal<std::vector<RegistryEntry>> registry;
  return registry.value;
}

/// A child would wait forever for a lock that another thread of its parent held.
void GuardRegistryAgainstForks() {
  const qsbase::detail::KillGuard guard;  // a static variable is locked while it is made
  static const bool done = [] {
    qsbase::detail::OsAroundFork([] { registryLock.lock(); }, [] { registryLock.unlock(); });
    return true;
  }();
  static_cast<void>(done);
}

void LogNotInitialized(const std::string& name) {
  QsLogMsg(kLogError, "QsThread(%s) not initialized (QsThread::ThreadId)", name.c_str());
}

/// Calls \p visit with id and name of every thread, under the lock. Those without an id are logged as by ThreadId(),
/// but later.
template <typename Visit>
void ForEachThread(Visit visit) {
  std::vector<std::string> withoutId;
  {
    const std::lock_guard<Lock> guard(registryLock);
    for (const RegistryEntry& entry : Registry()) {
      const int id = entry.impl->threadId;
      if (id == 0) {
        withoutId.push_back(entry.impl->name);
      }
      visit(id, entry.impl->name);
    }
  }
  for (const std::string& name : withoutId) {
    LogNotInitialized(name);
  }
}

// ---- the body -------------------------------------------------------------------------------------------------------

void CloseQueue(const QsThreadImpl& impl) {
  if (impl.queue) {
    impl.queue->Close();
  }
}

/// What is left to do when the manager has been told.
class StateEnd {
 public:
  explicit StateEnd(QsThreadImpl& impl) : _impl(impl) {}

  ~StateEnd() {
    CloseQueue(_impl);
    _impl.inWorker = false;
  }

  StateEnd(const StateEnd&) = delete;
  StateEnd& operator=(const StateEnd&) = delete;

 private:
  QsThreadImpl& _impl;
};

/// The state after the body, however that ends, but for a kill.
class BodyEnd {
 public:
  explicit BodyEnd(QsThreadImpl& impl) : _impl(impl) {}

  /// Lets a manager through that ends the thread.
  ~BodyEnd() noexcept(false) {
    const CancelGuard noCancellation;
    const StateEnd end(_impl);
    _impl.terminated = true;
    if (_impl.manager != nullptr) {
      LoggingExceptions("Thread removed from Manager (", _impl.name,
                        [this] { _impl.manager->ThreadRemoved(_impl.threadId); });
    }
  }

  BodyEnd(const BodyEnd&) = delete;
  BodyEnd& operator=(const BodyEnd&) = delete;

 private:
  QsThreadImpl& _impl;
};

void Enter(QsThreadImpl& impl) {
  impl.threadId = qsbase::detail::OsThreadId();
  if (impl.queue) {
    impl.queue->Open();
  }
  qsbase::detail::OsSetCurrentThreadName(impl.name);
}

/// The object, which may have been destroyed meanwhile.
QsThread& Owner(const QsThreadImpl& impl, const char* operation) {
  QsThread* const owner = impl.owner;
  if (owner == nullptr) {
    throw ExBase(std::string("Thread owner is null - cannot call ") + operation + "!");
  }
  return *owner;
}

/// Takes back the body's share, whoever comes first: the thread at its end, or who killed it.
void ReleaseBodyShare(QsThreadImpl& impl) {
  if (impl.bodyHasShare.exchange(false)) {
    const std::shared_ptr<QsThreadImpl> share = std::move(impl.bodyShare);  // may be the last
  }
}

void CleanUpAfterKill(QsThreadImpl& impl) {
  CloseQueue(impl);
  ReleaseBodyShare(impl);
}

}  // namespace

void qsbase::detail::WorkerFunction(void* context) {
  if (context == nullptr) {
    Quietly([] { QsLogMsg(kLogError, "WorkerFunction: invalid thread data"); });
    return;
  }
  QsThreadImpl& impl = *static_cast<QsThreadImpl*>(context);
  const BodyEnd end(impl);
  LoggingExceptions("Thread Start (", impl.name, [&impl] { Enter(impl); });
  impl.inWorker = true;
  impl.starting = false;
  if (impl.manager != nullptr) {
    LoggingExceptions("Thread added to Manager (", impl.name, [&impl] { impl.manager->ThreadAdded(impl.threadId); });
  }
  LoggingExceptions("Thread Execution (", impl.name, [&impl] { Owner(impl, "execute").Execute(); });
  LoggingExceptions("Thread Termination (", impl.name, [&impl] { Owner(impl, "attermination").AtTermination(); });
}

void qsbase::detail::AddThread(QsThread* thread, const std::shared_ptr<QsThreadImpl>& impl) {
  if (thread == nullptr) {
    QsLogMsg(kLogError, "AddThread: invalid thread");
    return;
  }
  GuardRegistryAgainstForks();
  const std::lock_guard<Lock> guard(registryLock);
  Registry().push_back({thread, impl});
}

void qsbase::detail::RemoveThread(QsThread* thread) {
  if (thread == nullptr) {
    QsLogMsg(kLogError, "RemoveThread: invalid thread");
    return;
  }
  std::shared_ptr<QsThreadImpl> impl;  // dropped after the lock
  const std::lock_guard<Lock> guard(registryLock);
  std::vector<RegistryEntry>& registry = Registry();
  const auto found = std::find_if(registry.begin(), registry.end(),
                                  [thread](const RegistryEntry& entry) { return entry.thread == thread; });
  if (found != registry.end()) {
    impl = std::move(found->impl);
    registry.erase(found);
  }
  if (registry.empty()) {
    registry.shrink_to_fit();  // the library may be unloaded now
  }
}

// ---- QsThreadManagerIntf, QsThreadBase ------------------------------------------------------------------------------

QsThreadManagerIntf::~QsThreadManagerIntf() = default;

QsThreadBase::QsThreadBase(QsThreadManagerIntf* manager) : _manager(manager) {}

QsThreadBase::~QsThreadBase() = default;

QsThreadManagerIntf* QsThreadBase::GetThreadManager() const { return _manager; }

// ---- QsThread: construction and destruction -------------------------------------------------------------------------

QsThread::QsThread(const std::string& name, QsThreadManagerIntf* manager) : QsThreadBase(manager) {
  try {
    _impl = std::make_shared<QsThreadImpl>(name);
    _impl->owner = this;
    qsbase::detail::AddThread(this, _impl);
  } catch (const std::bad_alloc&) {
    ThrowAllocationError("QsThreadImpl", ".\\QSbase/thread/qsthreadimpl_common", 108);
  }
  if (!IsVerbose()) {
    return;
  }
  try {
    QsLogMsg(kLogInfo4, "QsThread '%s' created", name.c_str());
  } catch (...) {
    qsbase::detail::RemoveThread(this);
    throw;
  }
}

namespace {

const char* SetOrNot(bool set) { return set ? "set" : "not set"; }
const char* BeenOrNot(bool been) { return been ? "been" : "not been"; }

void LogDestruction(const QsThreadImpl& impl) {
  if (IsVerbose()) {
    Quietly([&impl] { QsLogMsg(kLogInfo4, "Deleting Thread '%s'", impl.name.c_str()); });
  }
  if (impl.inWorker) {
    Quietly([&impl] {
      QsLogMsg(kLogError,
               "QsThread::~QsThread(%s): thread is still running (termination flag is %s / has %s waited for)",
               impl.name.c_str(), SetOrNot(impl.terminated), BeenOrNot(impl.waitedFor));
    });
  }
}

}  // namespace

QsThread::~QsThread() {
  const CancelGuard noCancellation;
  qsbase::detail::RemoveThread(this);
  std::shared_ptr<QsThreadImpl> impl = std::move(_impl);
  if (!impl) {
    Quietly([] { QsLogMsg(kLogError, "QsThread::~QsThread: _impl is NULL!"); });
    return;
  }
  impl->owner = nullptr;
  LogDestruction(*impl);
  if (impl->thread.WasKilled()) {
    CleanUpAfterKill(*impl);
  }
  Quietly([&impl] {
    const std::string name = impl->name;
    impl.reset();
    if (IsVerbose()) {
      QsLogMsg(kLogInfo4, "Thread '%s' deleted", name.c_str());
    }
  });
}

// ---- QsThread: running ----------------------------------------------------------------------------------------------

namespace {

/// Whether a started thread is still on its way to its body.
bool IsOnTheWay(const QsThreadImpl& impl) { return impl.starting && !impl.inWorker; }

/// Most threads arrive within a few turns; a thread that was killed never does.
void WaitUntilInBody(const QsThreadImpl& impl) {
  constexpr int kTurns = 1000;
  constexpr unsigned int kPollMs = 5;
  for (int turn = 0; turn < kTurns && IsOnTheWay(impl); ++turn) {
    std::this_thread::yield();
  }
  while (IsOnTheWay(impl) && !impl.thread.HasEnded()) {
    QsSleep(kPollMs);
  }
}

/// \throws ExBase when the system starts none
void StartThread(const std::shared_ptr<QsThreadImpl>& impl) {
  impl->bodyShare = impl;
  impl->bodyHasShare = true;
  const auto release = [](void* context) { ReleaseBodyShare(*static_cast<QsThreadImpl*>(context)); };
  if (!impl->thread.Start({&qsbase::detail::WorkerFunction, release, impl.get()})) {
    const std::string reason = LastErrorText();
    ReleaseBodyShare(*impl);
    QsLogMsg(kLogError, "QsThread::InternalCreate(%s) %s", impl->name.c_str(), reason.c_str());
    throw ExBase("Error creating thread " + impl->name);
  }
}

/// Gives the start back unless it was made.
class StartClaim {
 public:
  explicit StartClaim(QsThreadImpl& impl) : _impl(impl), _granted(!impl.startClaimed.exchange(true)) {}

  ~StartClaim() {
    if (_granted && !_impl.HasHandle()) {
      _impl.startClaimed = false;
    }
  }

  StartClaim(const StartClaim&) = delete;
  StartClaim& operator=(const StartClaim&) = delete;

  bool IsGranted() const { return _granted; }

 private:
  QsThreadImpl& _impl;
  bool _granted;
};

}  // namespace

void QsThread::AtTermination() {}

void QsThread::Create() {
  Require(_impl, "Create");
  const std::shared_ptr<QsThreadImpl> impl = _impl;  // the body may destroy this object
  const StartClaim claim(*impl);
  if (!claim.IsGranted()) {
    QsLogMsg(kLogError, "QsThread::Create (%s) - QsThread already initialized", impl->name.c_str());
    return;
  }
  if (impl->created) {
    QsLogMsg(kLogWarning, "QsThread::Create (%s) - QsThread already created", impl->name.c_str());
  }
  if (IsVerbose()) {
    QsLogMsg(kLogInfo4, "Creating Thread '" + impl->name + "'");
  }
  impl->manager = GetThreadManager();
  StartThread(impl);
  impl->created = true;
  WaitUntilInBody(*impl);
  if (IsVerbose()) {
    QsLogMsg(kLogInfo4, "Created Thread '" + impl->name + "' (" + std::to_string(impl->threadId) + ")");
  }
}

void QsThread::Terminate() { Require(_impl, "Terminate").terminated = true; }

bool QsThread::Terminated() const { return !_impl || _impl->terminated; }

bool QsThread::InWorkerFunction() const { return Require(_impl, "InWorkerFunction").inWorker; }

std::string QsThread::GetName() const { return Require(_impl, "GetName").name; }

int QsThread::ThreadId() const {
  const QsThreadImpl& impl = Require(_impl, "ThreadId");
  const int id = impl.threadId;
  if (id == 0) {
    LogNotInitialized(impl.name);
  }
  return id;
}

unsigned int QsThread::WaitFor(int timeoutMs) {
  const std::shared_ptr<QsThreadImpl> impl = _impl;  // the body may destroy this object
  if (!impl) {
    return 0;
  }
  if (!impl->created) {
    QsLogMsg(kLogError, "QsThread::WaitFor(%s) called without prior thread creation", impl->name.c_str());
    return 0;
  }
  // In this order: the body sets the one before it clears the other.
  const bool running = impl->starting || impl->inWorker;
  if (running && !impl->HasHandle()) {
    QsLogMsg(kLogError, "QsThread::WaitFor(%s) - not initialized", impl->name.c_str());
    return qsbase::detail::kWaitFailed;
  }
  const unsigned int result = running ? impl->thread.Wait(timeoutMs) : qsbase::detail::kWaitDone;
  if (result == qsbase::detail::kWaitDone) {
    impl->waitedFor = true;
  }
  return result;
}

unsigned int QsThread::Kill() {
  std::shared_ptr<QsThreadImpl> impl = _impl;
  if (!impl) {
    return 0;
  }
  if (!impl->HasHandle()) {
    QsLogMsg(kLogError, "QsThread not initialized (QsThread::WaitFor (%s))", impl->name.c_str());
    return qsbase::detail::kWaitFailed;
  }
  QsLogMsg(kLogWarning, "Killing thread " + impl->name);
  if (impl->thread.IsCurrent()) {
    CloseQueue(*impl);
    impl.reset();  // nothing is unwound
    _impl->thread.KillCurrent();
  }
  if (!impl->thread.Kill()) {
    QsLogMsg(kLogInfo1, "Thread %s could not be killed: %s", impl->name.c_str(), LastErrorText().c_str());
    return qsbase::detail::kWaitFailed;
  }
  impl->waitedFor = true;
  CleanUpAfterKill(*impl);
  QsLogMsg(kLogInfo1, "Thread %s killed", impl->name.c_str());
  return 0;
}

// ---- priorities -----------------------------------------------------------------------------------------------------

namespace {

struct PriorityName {
  QsThreadPriority priority;
  const char* name;
};

constexpr std::array<PriorityName, 7> kPriorityNames = {{{QsThreadPriority::Idle, "Idle"},
                                                         {QsThreadPriority::Lowest, "Lowest"},
                                                         {QsThreadPriority::BelowNormal, "BelowNormal"},
                                                         {QsThreadPriority::Normal, "Normal"},
                                                         {QsThreadPriority::AboveNormal, "AboveNormal"},
                                                         {QsThreadPriority::Highest, "Highest"},
                                                         {QsThreadPriority::TimeCritical, "TimeCritical"}}};

bool EqualWithoutCase(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](unsigned char a, unsigned char b) { return QsChar::ToLower(a) == QsChar::ToLower(b); });
}

/// The texts name the free function also where QsThread::GetPriority() failed.
void LogPriorityError(const char* operation, int threadId) {
  QsLogMsg(kLogError, "%s() for thread %d failed (%s)", operation, threadId, LastErrorText().c_str());
}

}  // namespace

void QsThread::Priority(QsThreadPriority priority) {
  QsThreadImpl& impl = Require(_impl, "Priority");
  if (!impl.thread.SetPriority(static_cast<int>(priority))) {
    LogPriorityError("QsThread::Priority", impl.threadId);
  }
}

QsThreadPriority QsThread::GetPriority() {
  const QsThreadImpl& impl = Require(_impl, "GetPriority");
  if (!impl.HasHandle()) {
    throw ExPrecondition("QsThread not initialized (QsThread::GetPriority (" + impl.name + "))");
  }
  const int priority = impl.thread.GetPriority();
  if (priority == qsbase::detail::kPriorityError) {
    LogPriorityError("QsGetThreadPriority", impl.threadId);
  }
  return static_cast<QsThreadPriority>(priority);
}

QsThreadPriority QsThread::QsThreadPriorityFromString(const std::string& text) {
  for (const PriorityName& entry : kPriorityNames) {
    if (EqualWithoutCase(entry.name, text)) {
      return entry.priority;
    }
  }
  throw ExBase("QsThread::QsThreadPriorityFromString found invalid priority string: " + text);
}

std::string QsThread::QsThreadPriorityToString(QsThreadPriority priority) {
  for (const PriorityName& entry : kPriorityNames) {
    if (entry.priority == priority) {
      return entry.name;
    }
  }
  throw ExBase("QsThread::QsStringFromThreadPriority found invalid priority: " +
               std::to_string(static_cast<int>(priority)));
}

bool QsGetThreadPriority(QsThreadPriority& priority) {
  const int current = qsbase::detail::OsGetCurrentPriority();
  if (current == qsbase::detail::kPriorityError) {
    LogPriorityError("QsGetThreadPriority", QsGetCurrentThreadId());
    return false;
  }
  priority = static_cast<QsThreadPriority>(current);
  return true;
}

void QsSetThreadPriority(QsThreadPriority priority) {
  if (!qsbase::detail::OsSetCurrentPriority(static_cast<int>(priority))) {
    LogPriorityError("QsSetThreadPriority", QsGetCurrentThreadId());
  }
}

// ---- names ----------------------------------------------------------------------------------------------------------

void QsGetThreadName(int threadId, std::string& name) {
  ForEachThread([&](int id, const std::string& threadName) {
    if (id == threadId) {
      name = threadName;
    }
  });
}

void QsGetThreadList(std::map<int, std::string>& list) {
  ForEachThread([&list](int id, const std::string& threadName) { list[id] = threadName; });
}
