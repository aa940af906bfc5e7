#include <QSbase/support/perfmon.h>

#include <atomic>
#include <chrono>
#include <new>

#include <QSbase/allocationerror.h>

/// In ticks of the steady clock.
struct PerfMonImpl {
  std::int64_t start = 0;
  std::int64_t last = 0;
};

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kTicksPerMillisecond =
    static_cast<double>(Clock::period::den) / static_cast<double>(Clock::period::num) / 1000.0;

std::int64_t Now() { return Clock::now().time_since_epoch().count(); }

PerfMonImpl* NewState() {
  auto* const state = new (std::nothrow) PerfMonImpl();
  if (state == nullptr) {
    qsbase::detail::ThrowAllocationError("PerfMon", "QSbase/support/win32/performancesupport", 51);
  }
  return state;
}

std::atomic<bool> isEnabled{false};

}  // namespace

PerfMon::PerfMon() : _impl(NewState()) { Reset(); }

PerfMon::PerfMon(const PerfMon& other) : _impl(NewState()) { *_impl = *other._impl; }

PerfMon::~PerfMon() = default;

PerfMon& PerfMon::operator=(const PerfMon& other) {
  *_impl = *other._impl;
  return *this;
}

PerfMon::operator double() {
  _impl->last = Now();
  return static_cast<double>(_impl->last - _impl->start) / kTicksPerMillisecond;
}

void PerfMon::Reset() { Start(); }

void PerfMon::Start() { _impl->start = _impl->last = Now(); }

bool PerfMon::IsStarted() const { return _impl->start != 0; }

double PerfMon::Stop() { return static_cast<double>(*this); }

PerfDataCollector::~PerfDataCollector() = default;

PerfMonWrapper::PerfMonWrapper(const std::string& name, std::int32_t id) : _name(name), _id(id) {}

PerfMonWrapper::PerfMonWrapper(const PerfMonWrapper& other) : PerfMon(other), _name(other._name), _id(other._id) {}

PerfMonWrapper::~PerfMonWrapper() = default;

PerfMonWrapper& PerfMonWrapper::operator=(const PerfMonWrapper& other) {
  PerfMon& stopwatch = *this;
  stopwatch = other;
  _name = other._name;
  _id = other._id;
  return *this;
}

std::string PerfMonWrapper::GetName() const { return _name; }

std::int32_t PerfMonWrapper::GetId() const { return _id; }

void PerfMonWrapper::Report(PerfDataCollector& collector) { collector.Collect(_name, _id, Stop()); }

void SetPerfMonEnabled(bool enabled) { isEnabled = enabled; }

bool GetPerfMonEnabled() { return isEnabled; }
