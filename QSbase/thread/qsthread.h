/// \file
/// Named threads with a body to override, a termination flag to poll, waiting, killing, priorities, and the list of all
/// of them.
///
/// Every operation of a QsThread may be called from any thread while the object lives; the free functions always.
#ifndef QSBASE_THREAD_QSTHREAD_H
#define QSBASE_THREAD_QSTHREAD_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <QSbase/export.h>

struct QsThreadImpl;

/// How much of the processor a thread gets: the values of Windows. On Linux they are the nice values 19, 10, 5, 0, -5,
/// -10 and -20, and the nearest is read back.
enum class QsThreadPriority : std::int32_t {
  Idle = -15,
  Lowest = -2,
  BelowNormal = -1,
  Normal = 0,
  AboveNormal = 1,
  Highest = 2,
  TimeCritical = 15
};

/// Is told of the threads that run under it. Implemented by the host; must outlive its threads. Both operations run on
/// the thread in question, so several may run at once; what they throw is logged.
class QSBASE_API QsThreadManagerIntf {
 public:
  virtual ~QsThreadManagerIntf();
  /// The thread \p threadId has just started and has not entered its body yet.
  virtual void ThreadAdded(int threadId) = 0;
  /// The body of the thread \p threadId and its AtTermination() have ended.
  virtual void ThreadRemoved(int threadId) = 0;
};

/// Root of the thread classes.
class QSBASE_API QsThreadBase {
 public:
  /// \p manager may be null; it is not owned.
  explicit QsThreadBase(QsThreadManagerIntf* manager);
  virtual ~QsThreadBase();
  QsThreadBase(const QsThreadBase&) = delete;
  QsThreadBase& operator=(const QsThreadBase&) = delete;

  virtual void Execute() = 0;
  virtual void AtTermination() = 0;
  virtual void Terminate() = 0;
  virtual void Priority(QsThreadPriority priority) = 0;
  virtual bool InWorkerFunction() const = 0;
  virtual int ThreadId() const = 0;
  virtual QsThreadManagerIntf* GetThreadManager() const;

 private:
  QsThreadManagerIntf* _manager;
};

/// A thread whose body is Execute(), supplied by a subclass. Constructing it starts nothing; Create() does.
///
/// The destructor neither stops nor waits: Terminate() and WaitFor() first.
///
/// \code
/// class Poller : public QsThread {
///  public:
///   Poller() : QsThread("poller", nullptr) {}
///   void Execute() override {
///     while (!Terminated()) { ... }
///   }
/// };
///
/// Poller poller;
/// poller.Create();
/// poller.Terminate();
/// poller.WaitFor(-1);
/// \endcode
class QSBASE_API QsThread : public QsThreadBase {
 public:
  QsThread(const std::string& name, QsThreadManagerIntf* manager);
  ~QsThread() override;

  void Execute() override = 0;
  void AtTermination() override;
  void Terminate() override;
  void Priority(QsThreadPriority priority) override;
  bool InWorkerFunction() const override;
  int ThreadId() const override;
  virtual void Create();
  virtual bool Terminated() const;
  virtual unsigned int WaitFor(int timeoutMs);
  virtual unsigned int Kill();
  virtual QsThreadPriority GetPriority();

  std::string GetName() const;

  static QsThreadPriority QsThreadPriorityFromString(const std::string& text);
  static std::string QsThreadPriorityToString(QsThreadPriority priority);

 protected:
  // Shared with the running body, which may outlive the object.
  std::shared_ptr<QsThreadImpl> _impl;
};

QSBASE_API bool QsGetThreadPriority(QsThreadPriority& priority);
QSBASE_API void QsSetThreadPriority(QsThreadPriority priority);
QSBASE_API void QsGetThreadName(int threadId, std::string& name);
QSBASE_API void QsGetThreadList(std::map<int, std::string>& list);

#endif
