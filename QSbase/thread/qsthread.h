/// \file
/// Named threads with a body to override, a termination flag to poll, waiting, killing, priorities, and the list of all
/// of them.
///
/// Every operation of a QsThread may be called from any thread while the object lives; the free functions always. Texts
/// are logged as they stand: a name may hold "%". A forked child inherits the objects, not the threads: it must neither
/// wait for them nor kill them.
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

/// Is told of the threads that run under it. Implemented by the host; must outlive its threads (not only their
/// objects). Both operations run on the thread in question, so several may run at once; what they throw is logged.
class QSBASE_API QsThreadManagerIntf {
 public:
  virtual ~QsThreadManagerIntf();

  /// The thread \p threadId has just started and has not entered its body yet.
  virtual void ThreadAdded(int threadId) = 0;

  /// The body of the thread \p threadId and its AtTermination() have ended, also when an exception ended them, or when
  /// the object of the thread is gone. Not called for a thread that was killed.
  virtual void ThreadRemoved(int threadId) = 0;
};

/// Root of the thread classes. What its operations do stands at QsThread.
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

  /// The manager that the constructor got. Asked once by QsThread::Create().
  virtual QsThreadManagerIntf* GetThreadManager() const;

 private:
  QsThreadManagerIntf* _manager;
};

/// A thread whose body is Execute(), supplied by a subclass. Constructing it starts nothing; Create() does, once.
///
/// On the new thread run, one after the other: the manager's ThreadAdded(), Execute(), AtTermination(), the manager's
/// ThreadRemoved(). What any of them throws is logged as error "Thread Execution (<name>)  >>> <text>" ("Thread added
/// to Manager (", "Thread Termination (", "Thread removed from Manager (" for the others) and ends only that step; the
/// text is that of an ExBase, "std::exception: " with `what()`, or "unknown exception". `pthread_exit` and a
/// cancellation by the host end the thread without AtTermination(), with everything else in order.
///
/// The destructor neither stops nor waits: Terminate() and WaitFor() first, before any subclass's members go. The body
/// itself may end with `delete this`.
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
  /// Makes a thread that does not run yet and enters it in the list of threads. At log level 4 and above logs info
  /// "QsThread '<name>' created". The thread bears the name in debuggers and tools too, on Linux its first 15 bytes.
  /// \throws ExMemoryAllocation when memory is short.
  QsThread(const std::string& name, QsThreadManagerIntf* manager);

  /// Takes the thread off the list and gives it up. While its body runs (or was killed) logs error
  /// "QsThread::~QsThread(<name>): thread is still running (termination flag is <set or not set> / has <been or not
  /// been> waited for)". A body that goes on finds its owner gone: instead of Execute() or AtTermination() error
  /// "Thread owner is null - cannot call attermination!" (or "execute!") is logged as an exception of theirs. At log
  /// level 4 and above logs info "Deleting Thread '<name>'" and "Thread '<name>' deleted". Does not block.
  ~QsThread() override;

  /// The body of the thread. Is expected to poll Terminated() and to return when that turns true.
  void Execute() override = 0;

  /// Called on the thread after Execute(), also when that threw. Does nothing by default.
  void AtTermination() override;

  /// Sets the termination flag; wakes nobody.
  /// \throws ExPrecondition "QsThread::Terminate: _impl is NULL!"; each operation has a text of its own, but
  /// Terminated(), WaitFor() and Kill(), which throw nothing: they give true, 0 and 0.
  void Terminate() override;

  /// Sets the thread's priority. Lowering it is always allowed; Linux needs the right to raise it. A failure, also of a
  /// thread that has not been created or (on Linux) has ended, or for a value that QsThreadPriority does not name, is
  /// logged as error "QsThread::Priority() for thread <id> failed (<the system's text>)".
  void Priority(QsThreadPriority priority) override;

  /// Whether the thread is between its start and its end. Stays true after Kill() (kept).
  bool InWorkerFunction() const override;

  /// The operating system's id of the thread, from Create() on. Before that logs error "QsThread(<name>) not
  /// initialized (QsThread::ThreadId)" and gives 0.
  int ThreadId() const override;

  /// Starts the thread and returns when it is about to enter its body, or has done so: polls for that, first without
  /// pause and then every 5 ms. A second call logs error "QsThread::Create (<name>) - QsThread already initialized" and
  /// does nothing, also when the body has ended. At log level 4 and above logs info "Creating Thread '<name>'" and
  /// "Created Thread '<name>' (<id>)". On Linux the first call in the process takes a real-time signal for Kill(), the
  /// last one without a handler; the host must leave it alone.
  /// \throws ExBase "Error creating thread <name>" when the system starts none; error "QsThread::InternalCreate(<name>)
  /// <the system's text>" is logged before. Create() may be tried again.
  virtual void Create();

  /// The termination flag, set by Terminate() and by the end of the body.
  virtual bool Terminated() const;

  /// Waits for the thread's end, at most \p timeoutMs milliseconds, without limit for a negative number. Several
  /// threads may wait.
  /// \returns 0 when it has ended, 258 when the time ran out, 0xFFFFFFFF on a failure. 0 at once when the body has
  /// ended; what remains of the thread is then not waited for. 0, too, with error "QsThread::WaitFor(<name>) called
  /// without prior thread creation" before Create().
  virtual unsigned int WaitFor(int timeoutMs);

  /// Ends the thread from outside, wherever it is: nothing is unwound, AtTermination() and the manager are not called,
  /// what it had locked or allocated stays so. The last resort. Afterwards InWorkerFunction() stays true and
  /// Terminated() false, WaitFor() gives 0. A thread may kill itself: it ends at once, also inside a lock of this
  /// library, which stays locked. One that has ended counts as killed.
  ///
  /// On Linux the thread ends in a signal handler. It is spared inside the locks of this library and dies when it
  /// leaves them; on Windows it is not, and leaves even those locked. A thread that blocks every signal cannot be
  /// killed. \returns 0, or 0xFFFFFFFF when it could not be ended within two seconds or has not been created. On Linux
  /// it may, rarely, still end after that.
  ///
  /// Logs warning "Killing thread <name>", then info of level 1 "Thread <name> killed" or "Thread <name> could not be
  /// killed: <the system's text>"; before Create() error "QsThread not initialized (QsThread::WaitFor (<name>))" (kept:
  /// the text names WaitFor).
  virtual unsigned int Kill();

  /// The thread's priority. When the system does not tell, error "QsGetThreadPriority() for thread <id> failed (<the
  /// system's text>)" is logged (kept: the text names the free function) and 0x7FFFFFFF given.
  /// \throws ExPrecondition "QsThread not initialized (QsThread::GetPriority (<name>))" before Create().
  virtual QsThreadPriority GetPriority();

  /// The name that the constructor got.
  std::string GetName() const;

  /// The value of a name of QsThreadPriority, in upper or lower case.
  /// \throws ExBase "QsThread::QsThreadPriorityFromString found invalid priority string: <text>" for any other text.
  static QsThreadPriority QsThreadPriorityFromString(const std::string& text);

  /// The name of the value.
  /// \throws ExBase "QsThread::QsStringFromThreadPriority found invalid priority: <number>" for any other value (kept:
  /// the text's function name).
  static std::string QsThreadPriorityToString(QsThreadPriority priority);

 protected:
  // Shared with the running body, which may outlive the object.
  std::shared_ptr<QsThreadImpl> _impl;
};

/// Stores the calling thread's priority in \p priority. On failure logs error "QsGetThreadPriority() for thread <id>
/// failed (<the system's text>)", leaves it alone and gives false.
QSBASE_API bool QsGetThreadPriority(QsThreadPriority& priority);

/// Sets the calling thread's priority; see QsThread::Priority(). A failure is logged as error "QsSetThreadPriority()
/// for thread <id> failed (<the system's text>)".
QSBASE_API void QsSetThreadPriority(QsThreadPriority priority);

/// Stores the name of the QsThread with the id \p threadId in \p name, of several (an id is used again when its thread
/// has ended) that of the last one constructed; leaves it alone when there is none. Logs the error of
/// QsThread::ThreadId() for every thread that has not been created (kept); 0 stands for those.
QSBASE_API void QsGetThreadName(int threadId, std::string& name);

/// Adds id and name of every QsThread to \p list, which is not cleared; of several with one id the last one constructed
/// stays. Logs as QsGetThreadName() does.
QSBASE_API void QsGetThreadList(std::map<int, std::string>& list);

#endif
