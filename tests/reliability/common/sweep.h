/// \file
/// Runs an operation again and again, with the first, the second, ... call that it makes failing, until it runs through
/// without meeting the fault.
#ifndef QSBASE_TESTS_RELIABILITY_COMMON_SWEEP_H
#define QSBASE_TESTS_RELIABILITY_COMMON_SWEEP_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>
#endif

#include <common/openhandles.h>

#include <reliability/common/faults.h>

#include <QSbase/errors.h>
#include <QSbase/log/log.h>

namespace qsbase::testing {

// The same refusals on both systems.
#ifdef _WIN32
inline constexpr int kNoSpace = ERROR_DISK_FULL;
inline constexpr int kDeviceError = ERROR_IO_DEVICE;
inline constexpr int kDenied = ERROR_ACCESS_DENIED;
inline constexpr int kTooManyOpen = ERROR_TOO_MANY_OPEN_FILES;
inline constexpr int kNoMemory = ERROR_NOT_ENOUGH_MEMORY;
inline constexpr int kInterrupted = -2;  // nothing is there
#else
inline constexpr int kNoSpace = ENOSPC;
inline constexpr int kDeviceError = EIO;
inline constexpr int kDenied = EACCES;
inline constexpr int kTooManyOpen = EMFILE;
inline constexpr int kNoMemory = ENOMEM;
inline constexpr int kInterrupted = EINTR;
#endif

/// One way to fail. What nobody may notice must be made good: the call be made again, or the rest be asked for.
struct Blow {
  FaultKind kind;
  int error;
  bool noticeable;
};

/// What files meet.
inline const std::vector<Blow> kFileBlows = {
    {FaultKind::Open, kTooManyOpen, true},  {FaultKind::Open, kDenied, true},
    {FaultKind::Read, kDeviceError, true},  {FaultKind::Write, kNoSpace, true},
    {FaultKind::Write, kDeviceError, true}, {FaultKind::Flush, kDeviceError, true},
    {FaultKind::Close, kDeviceError, true}, {FaultKind::Rename, kDenied, true},
    {FaultKind::Stat, kDeviceError, true},  {FaultKind::Stat, kDenied, true},
    {FaultKind::Unlink, kDenied, true},     {FaultKind::MakeFolder, kNoSpace, true},
    {FaultKind::Attribute, kDenied, true},  {FaultKind::Allocate, kNoMemory, true},
#ifndef _WIN32
    {FaultKind::Open, EINTR, false},        {FaultKind::Read, EINTR, false},
    {FaultKind::Write, EINTR, false},       {FaultKind::Flush, EINTR, false},
    {FaultKind::Close, EINTR, false},       {FaultKind::Read, kShort, false},
    {FaultKind::Write, kShort, false},
#endif
};

struct Message {
  unsigned flags;
  std::string text;
};

/// Collects what the library logs while it lives; the fault in force does not hit it.
class SparedLog {
 public:
  SparedLog() { SetLogCallback(&Receive); }
  ~SparedLog() {
    DisableLogCallback(&Receive);
    const std::lock_guard<std::mutex> lock(Mutex());
    std::vector<Message>().swap(Store());
  }
  SparedLog(const SparedLog&) = delete;
  SparedLog& operator=(const SparedLog&) = delete;

  std::vector<Message> Messages() const {
    const std::lock_guard<std::mutex> lock(Mutex());
    return Store();
  }

 private:
  static std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
  }

  static std::vector<Message>& Store() {
    static std::vector<Message> messages;
    return messages;
  }

  static void Receive(unsigned flags, const char* text) {
    const NoFaults spared;
    const std::lock_guard<std::mutex> lock(Mutex());
    Store().push_back({flags, text});
  }
};

/// What an operation came to.
template <class Result>
struct Outcome {
  Fault fault;
  bool hit = false;      ///< the fault was met
  bool allowed = false;  ///< it was, and may be noticed
  std::optional<Result> result;
  std::string thrown;  ///< the text of what was thrown; "std::bad_alloc" for the lack of memory
  int error = 0;       ///< the last error
  std::vector<Message> log;

  /// Whether a message was logged that tells of the fault.
  bool Logged() const {
    for (const Message& message : log) {
      if (message.text.find(QsErrorMessage(fault.error)) != std::string::npos) {
        return true;
      }
    }
    return false;
  }
};

inline std::string Describe(const Fault& fault) {
  std::ostringstream text;
  text << NameOf(fault.kind) << ' ' << (fault.error == kShort ? "short" : QsErrorMessage(fault.error)) << " at call "
       << fault.first << (fault.count == kForever ? " and from then on" : "");
  return text.str();
}

template <class Run>
auto RunWith(const Fault& fault, bool noticeable, bool takesLog, Run run) {
  Outcome<decltype(run())> outcome;
  outcome.fault = fault;
  std::optional<SparedLog> log;
  if (takesLog) {
    log.emplace();
  }
  const auto taken = [&outcome](const std::string& text) {
    outcome.error = QsGetLastError();
    outcome.thrown = text;
  };
  try {
    QsSetLastError(0);
    const FaultInjection injection(fault);
    struct Note {
      const FaultInjection& from;
      bool& to;
      ~Note() { to = from.Hits() != 0; }
    } const note{injection, outcome.hit};
    outcome.result.emplace(run());
    outcome.error = QsGetLastError();
  } catch (const std::bad_alloc&) {
    taken("std::bad_alloc");
  } catch (const ExBase& error) {
    taken(error.GetErrorText());
  } catch (const std::exception& error) {
    taken(error.what());
  }
  outcome.allowed = outcome.hit && noticeable;
  if (log) {
    outcome.log = log->Messages();
  }
  return outcome;
}

/// One operation of the library, and what must hold after it.
template <class Prepare, class Run, class Check>
class Trial {
 public:
  /// \p prepare puts things back to the start; \p run is met by the faults and gives its result; \p check looks at the
  /// Outcome and at what is on the disk.
  Trial(std::string name, Prepare prepare, Run run, Check check)
      : _name(std::move(name)), _prepare(prepare), _run(run), _check(check) {}

  /// Leaves what is logged to the log file, which gets nothing while a callback takes it.
  Trial& LeaveLog() {
    _takesLog = false;
    return *this;
  }

  /// With all the blows: each at the first call, the second, ... alone, and from there on for good.
  void Sweep(const std::vector<Blow>& blows) {
    Step({.kind = FaultKind::Open, .first = 0}, false);  // what a process makes once is made here
    for (const Blow& blow : blows) {
      SweepWith(blow, 1);
      if (blow.error != kInterrupted) {
        SweepWith(blow, kForever);
      }
    }
    Report();
  }

 private:
  static constexpr unsigned kMost = 100000;  // calls of one operation

  void SweepWith(const Blow& blow, unsigned count) {
    for (unsigned first = 1; first < kMost && !::testing::Test::HasFatalFailure(); ++first) {
      const Fault fault{.kind = blow.kind, .error = blow.error, .first = first, .count = count};
      SCOPED_TRACE(_name + ", " + Describe(fault));
      if (!Step(fault, blow.noticeable)) {
        return;
      }
      ++_faults[NameOf(blow.kind)];
    }
    FAIL() << _name << " does not come to an end";
  }

  // Whether the fault was met. What is left behind only once (a failure may make what the process then keeps) is not
  // left behind a second time.
  bool Step(const Fault& fault, bool noticeable) {
    long grown = 0;
    const bool hit = Once(fault, noticeable, grown);
    if (grown > 0 && !::testing::Test::HasFailure()) {  // failures are kept in memory too
      Once(fault, noticeable, grown);
      EXPECT_LE(grown, 0) << "blocks of memory are left";
    }
    return hit;
  }

  bool Once(const Fault& fault, bool noticeable, long& grown) {
    _prepare();
    const std::vector<NativeHandle> handles = OpenHandles();
    const long blocks = LiveBlocks();
    bool hit = false;
    {
      const auto outcome = RunWith(fault, noticeable, _takesLog, _run);
      hit = outcome.hit;
      EXPECT_TRUE(outcome.allowed || outcome.thrown.empty()) << outcome.thrown;
      _check(outcome);
    }
    grown = LiveBlocks() - blocks;
    const std::vector<NativeHandle> after = OpenHandles();
    EXPECT_TRUE(std::includes(handles.begin(), handles.end(), after.begin(), after.end())) << "handles are left";
    return hit;
  }

  void Report() const {
    unsigned sum = 0;
    std::ostringstream text;
    for (const auto& [kind, count] : _faults) {
      text << ' ' << kind << ' ' << count;
      sum += count;
    }
    std::printf("swept: %s: %u faults:%s\n", _name.c_str(), sum, text.str().c_str());
  }

  std::string _name;
  Prepare _prepare;
  Run _run;
  Check _check;
  bool _takesLog = true;
  std::map<std::string, unsigned> _faults;
};

}  // namespace qsbase::testing

#endif
