#include <QSbase/support/perfmon.h>

#include <gtest/gtest.h>

#include <common/failingallocation.h>

#include <QSbase/errors.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// By the clock itself: a sleep may end a little early.
void Wait(double milliseconds) {
  const Clock::time_point start = Clock::now();
  while (MillisecondsSince(start) < milliseconds) {
    std::this_thread::yield();
  }
}

TEST(PerfMon, RunsFromTheBeginning) {
  PerfMon watch;
  EXPECT_TRUE(watch.IsStarted());
}

// Between what the test itself measures inside and outside of it.
TEST(PerfMon, MeasuresMilliseconds) {
  const Clock::time_point outside = Clock::now();
  PerfMon watch;
  const Clock::time_point inside = Clock::now();
  Wait(20);
  const double least = MillisecondsSince(inside);
  const double measured = watch.Stop();
  EXPECT_GE(measured, least - 0.001);
  EXPECT_LE(measured, MillisecondsSince(outside) + 0.001);
}

TEST(PerfMon, RunsOnAfterAStop) {
  PerfMon watch;
  Wait(2);
  const double first = watch.Stop();
  Wait(2);
  const double second = watch.Stop();
  EXPECT_GE(first, 1.9);
  EXPECT_GE(second, first + 1.9);
  EXPECT_TRUE(watch.IsStarted());
}

TEST(PerfMon, TheConversionIsAStop) {
  PerfMon watch;
  Wait(5);
  const double converted = watch;
  EXPECT_GE(converted, 4.9);
  EXPECT_GE(watch.Stop(), converted);
}

TEST(PerfMon, StartAndResetBeginAnew) {
  for (void (PerfMon::*const begin)() : {&PerfMon::Start, &PerfMon::Reset}) {
    PerfMon watch;
    Wait(20);
    const Clock::time_point outside = Clock::now();
    (watch.*begin)();
    const double measured = watch.Stop();
    EXPECT_LE(measured, MillisecondsSince(outside) + 0.001);
    EXPECT_GE(measured, 0);
  }
}

TEST(PerfMon, ACopyMeasuresFromTheSourcesStart) {
  PerfMon source;
  Wait(20);
  PerfMon assigned;
  assigned = source;
  PerfMon copied(source);
  EXPECT_GE(assigned.Stop(), 19.9);
  EXPECT_GE(copied.Stop(), 19.9);
}

TEST(PerfMon, ACopyRunsByItself) {
  PerfMon source;
  Wait(20);
  PerfMon copied(source);
  const Clock::time_point outside = Clock::now();
  source.Start();
  EXPECT_GE(copied.Stop(), 19.9);
  const double measured = source.Stop();
  EXPECT_LE(measured, MillisecondsSince(outside) + 0.001);
}

TEST(PerfMon, AssignedToItselfRunsOn) {
  PerfMon watch;
  Wait(20);
  const PerfMon& same = watch;
  watch = same;
  EXPECT_GE(watch.Stop(), 19.9);
}

TEST(PerfMon, TellsWhereMemoryWasShort) {
  qsbase::testing::failingAllocation = 1;
  try {
    PerfMon watch;
    ADD_FAILURE() << "there was memory";
  } catch (const ExMemoryAllocation& error) {
    EXPECT_EQ(error.GetErrorText(),
              "Memory allocation error: PerfMon (file QSbase/support/win32/performancesupport, line 51");
  }
  PerfMon source;
  qsbase::testing::failingAllocation = 1;
  EXPECT_THROW(PerfMon{source}, ExMemoryAllocation);
}

class FixedWatch : public PerfMon {
 public:
  using PerfMon::operator=;
  operator double() override { return 7; }
};

TEST(PerfMon, StopAsksTheDerivedClass) {
  FixedWatch watch;
  EXPECT_EQ(watch.Stop(), 7);
}

struct Measurement {
  std::string name;
  std::int32_t id;
  double milliseconds;
};

class Collector : public PerfDataCollector {
 public:
  void Collect(const std::string& name, std::int32_t id, double milliseconds) override {
    if (name.empty()) {
      throw std::invalid_argument("no name");
    }
    measurements.push_back({name, id, milliseconds});
  }

  std::vector<Measurement> measurements;
};

TEST(PerfMonWrapper, KnowsWhatItMeasures) {
  PerfMonWrapper watch("load", 7);
  EXPECT_EQ(watch.GetName(), "load");
  EXPECT_EQ(watch.GetId(), 7);
  EXPECT_TRUE(watch.IsStarted());
  EXPECT_EQ(PerfMonWrapper().GetName(), "");
  EXPECT_EQ(PerfMonWrapper().GetId(), 0);
}

TEST(PerfMonWrapper, CopiesStartNameAndId) {
  PerfMonWrapper source("load", -2);
  Wait(20);
  PerfMonWrapper copied(source);
  PerfMonWrapper assigned;
  assigned = source;
  for (PerfMonWrapper* const watch : {&copied, &assigned}) {
    EXPECT_EQ(watch->GetName(), "load");
    EXPECT_EQ(watch->GetId(), -2);
    EXPECT_GE(watch->Stop(), 19.9);
  }
}

TEST(PerfMonWrapper, TakesTheStartOfAPlainOne) {
  PerfMon source;
  Wait(20);
  PerfMonWrapper watch("load", 1);
  watch = source;
  EXPECT_EQ(watch.GetName(), "load");
  EXPECT_GE(watch.Stop(), 19.9);
}

class CountingWatch : public PerfMonWrapper {
 public:
  PerfMon& operator=(const PerfMon& other) override {
    ++assignments;
    return PerfMonWrapper::operator=(other);
  }
  using PerfMonWrapper::operator=;

  int assignments = 0;
};

TEST(PerfMonWrapper, AssignsThroughTheDerivedClass) {
  CountingWatch watch;
  PerfMonWrapper& plain = watch;
  plain = PerfMonWrapper("load", 3);
  EXPECT_EQ(watch.assignments, 1);
  EXPECT_EQ(watch.GetName(), "load");
}

TEST(PerfMonWrapper, ReportsToACollector) {
  Collector collector;
  PerfMonWrapper watch("load", 7);
  Wait(5);
  watch.Report(collector);
  watch.Report(collector);
  ASSERT_EQ(collector.measurements.size(), 2U);
  EXPECT_EQ(collector.measurements[0].name, "load");
  EXPECT_EQ(collector.measurements[0].id, 7);
  EXPECT_GE(collector.measurements[0].milliseconds, 4.9);
  EXPECT_GE(collector.measurements[1].milliseconds, collector.measurements[0].milliseconds);
  EXPECT_THROW(PerfMonWrapper().Report(collector), std::invalid_argument);
}

TEST(PerfMonSwitch, IsOffUntilSet) {
  EXPECT_FALSE(GetPerfMonEnabled());
  SetPerfMonEnabled(true);
  EXPECT_TRUE(GetPerfMonEnabled());
  SetPerfMonEnabled(false);
  EXPECT_FALSE(GetPerfMonEnabled());
}

TEST(PerfMonSwitch, DoesNotStopTheWatches) {
  SetPerfMonEnabled(false);
  PerfMon watch;
  Wait(2);
  EXPECT_GE(watch.Stop(), 1.9);
}

TEST(PerfMonSwitch, MayBeSetWhileOthersAsk) {
  std::thread setter([] {
    for (int i = 0; i < 1000; ++i) {
      SetPerfMonEnabled(i % 2 == 0);
    }
  });
  for (int i = 0; i < 1000; ++i) {
    GetPerfMonEnabled();
  }
  setter.join();
  EXPECT_FALSE(GetPerfMonEnabled());
}

}  // namespace
