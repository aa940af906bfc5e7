/// \file
/// A stopwatch in milliseconds, and a switch for whether to use it at all.
///
/// Thread safety: a stopwatch belongs to one thread at a time; the switch may be used from any thread.
#ifndef QSBASE_SUPPORT_PERFMON_H
#define QSBASE_SUPPORT_PERFMON_H

#include <cstdint>
#include <memory>
#include <string>

#include <QSbase/export.h>

struct PerfMonImpl;

/// Measures the time since its start by the system's steady clock, which no setting of the time disturbs: nanoseconds
/// on Linux, the performance counter on Windows.
///
/// \code
/// PerfMon watch;  // already running
/// Work();
/// QsLogMsg(0x10000004, "%.3f ms", watch.Stop());
/// \endcode
class QSBASE_API PerfMon {
 public:
  /// Starts.
  /// \throws ExMemoryAllocation "... PerfMon (file QSbase/support/win32/performancesupport, line 51".
  PerfMon();
  /// Goes on from the other's start. Throws as PerfMon().
  PerfMon(const PerfMon& other);
  virtual ~PerfMon();
  /// Measures from the other's start from now on. Assigning it to itself changes nothing.
  virtual PerfMon& operator=(const PerfMon& other);
  /// The time since the start in milliseconds, with fractions.
  virtual operator double();

  /// Starts anew, as a new one.
  void Reset();
  /// Starts anew.
  void Start();
  /// True once there is a start, which the constructor makes.
  bool IsStarted() const;
  /// The time since the start in milliseconds, as the conversion gives it. The stopwatch runs on from the same start.
  double Stop();

 private:
  std::unique_ptr<PerfMonImpl> _impl;
};

/// Takes measurements from stopwatches with a name. Programs derive from it.
class QSBASE_API PerfDataCollector {
 public:
  /// Takes \p milliseconds for what \p name and \p id stand for.
  virtual void Collect(const std::string& name, std::int32_t id, double milliseconds) = 0;
  virtual ~PerfDataCollector();
};

/// A stopwatch that knows what it measures.
///
/// \code
/// PerfMonWrapper watch("load", 7);
/// Load();
/// watch.Report(collector);
/// \endcode
class QSBASE_API PerfMonWrapper : public PerfMon {
 public:
  /// Starts, for the program's own \p name and \p id. Throws as PerfMon().
  explicit PerfMonWrapper(const std::string& name = std::string(), std::int32_t id = 0);
  /// Goes on from the other's start, with its name and id. Throws as PerfMon().
  PerfMonWrapper(const PerfMonWrapper& other);
  ~PerfMonWrapper() override;
  using PerfMon::operator=;
  /// Takes start, name and id over.
  PerfMonWrapper& operator=(const PerfMonWrapper& other);

  /// What is measured.
  std::string GetName() const;
  /// The program's own number for it.
  std::int32_t GetId() const;

  /// Gives name, id and the time since the start to \p collector, and runs on. What the collector throws passes on.
  void Report(PerfDataCollector& collector);

 private:
  std::string _name;
  std::int32_t _id;
};

/// Whether the program wants measurements: for callers to ask, the library measures in any case.
QSBASE_API void SetPerfMonEnabled(bool enabled);
/// What was set last; false at first.
QSBASE_API bool GetPerfMonEnabled();

#endif
