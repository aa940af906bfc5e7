// What is started is seen by what the sockets say of it, and on Linux by the calls of the other libraries. Each test
// needs a process of its own.
#include <QSbase/startup.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifndef _WIN32
#include <dlfcn.h>
#endif

#include <common/logcapture.h>

#include <QSbase/immortal.h>
#include <QSbase/log/log.h>
#include <QSbase/support/libxmlsupport.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
namespace {

// Of starts and stops. Not destroyed: libxml2 stops itself when the process ends.
std::vector<std::string>& Steps() {
  static qsbase::detail::Immortal<std::vector<std::string>> steps;
  return steps.value;
}

void LogStep(unsigned int /*flags*/, const char* text) { Steps().emplace_back(text); }

template <typename Function>
Function* Step(Function* /*own*/, const char* name) {
  Steps().emplace_back(name);
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

void xmlInitParser();
void xmlCleanupParser();
int curl_global_init(long flags);
void curl_global_cleanup();

void xmlInitParser() { Step(&xmlInitParser, "xmlInitParser")(); }
void xmlCleanupParser() { Step(&xmlCleanupParser, "xmlCleanupParser")(); }
int curl_global_init(long flags) { return Step(&curl_global_init, "curl_global_init")(flags); }
void curl_global_cleanup() { Step(&curl_global_cleanup, "curl_global_cleanup")(); }
}
#endif

namespace {

using qsbase::testing::LogCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const auto kStart = ElementsAre(StartsWith("WinSock Description: "), "WinSock DLL 2.2 or higher found");

std::ptrdiff_t StartsIn(const LogCapture& log) {
  const std::vector<std::string> texts = log.Texts();
  return std::count(texts.begin(), texts.end(), "WinSock DLL 2.2 or higher found");
}

TEST(InitBase, StartsOnce) {
  const LogCapture log;
  InitBase(1);
  EXPECT_THAT(log.Texts(), kStart);
  InitBase(1, "whatever this says");
  EXPECT_THAT(log.Texts(), kStart);
  InitBase(2);
}

TEST(InitBase, KnowsNoOtherPhases) {
  const LogCapture log;
  for (const int phase : {3, 0, -1}) {
    InitBase(phase);
  }
  EXPECT_THAT(log.Texts(), IsEmpty());
  InitBase(1);
  EXPECT_THAT(log.Texts(), kStart);
  InitBase(2);
}

TEST(InitBase, StartsNothingAgainAfterTheStop) {
  LogCapture log;
  InitBase(1);
  InitBase(2);
  log.Clear();
  InitBase(1);
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST(InitBase, AStopWithoutAStartIsHarmless) {
  const LogCapture log;
  InitBase(2);
  InitBase(2, "twice");
  InitBase(1);
  EXPECT_EQ(StartsIn(log), 1);
  InitBase(2);
  InitBase(2);
  EXPECT_EQ(GetXPathStringFromString("<r><a/></r>", "//a"), "<a/>");  // what needs no start still works
}

TEST(InitBase, OfManyThreadsOneStartsAndAllWait) {
  const LogCapture log;
  std::atomic<bool> go{false};
  std::atomic<int> early{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 16; ++i) {
    threads.emplace_back([&] {
      while (!go) {
        std::this_thread::yield();
      }
      InitBase(1);
      early += StartsIn(log) == 1 ? 0 : 1;
    });
  }
  go = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(early, 0);
  EXPECT_THAT(log.Texts(), kStart);
  InitBase(2);
}

int failures = 0;

void Fail(unsigned int /*flags*/, const char* /*text*/) {
  ++failures;
  throw std::runtime_error("no");
}

TEST(InitBase, IsTriedAgainAfterAFailure) {
  SetLogCallback(&Fail);
  EXPECT_THROW(InitBase(1), std::runtime_error);
  EXPECT_THROW(InitBase(1), std::runtime_error);
  EXPECT_EQ(failures, 2);
  DisableLogCallback(&Fail);
  const LogCapture log;
  InitBase(1);
  EXPECT_THAT(log.Texts(), kStart);
  InitBase(2);
}

int calls = 0;

void StartFromInside(unsigned int /*flags*/, const char* /*text*/) {
  ++calls;
  InitBase(1);
}

TEST(InitBase, MayBeCalledByWhatItCalls) {
  SetLogCallback(&StartFromInside);
  InitBase(1);
  EXPECT_EQ(calls, 2);
  DisableLogCallback(&StartFromInside);
  InitBase(2);
}

#ifndef _WIN32
TEST(InitBaseOrder, IsThatOfTheSubsystemsAndTurnedRoundForTheStop) {
  const auto started = ElementsAre("xmlInitParser", StartsWith("WinSock Description: "),
                                   "WinSock DLL 2.2 or higher found", "curl_global_init");
  SetLogCallback(&LogStep);
  Steps().clear();
  InitBase(1);
  EXPECT_THAT(Steps(), started);
  InitBase(1);
  EXPECT_THAT(Steps(), started);
  Steps().clear();
  InitBase(2);
  EXPECT_THAT(Steps(), ElementsAre("curl_global_cleanup", "xmlCleanupParser"));
  Steps().clear();
  InitBase(2);  // every time; what is over then is the parser's own knowledge
  EXPECT_THAT(Steps(), ElementsAre("curl_global_cleanup"));
  Steps().clear();
  InitBase(1);
  for (const int phase : {3, 0, -1}) {
    InitBase(phase);
  }
  EXPECT_THAT(Steps(), IsEmpty());
  DisableLogCallback(&LogStep);
}

void LogAndFail(unsigned int flags, const char* text) {
  LogStep(flags, text);
  throw std::runtime_error("no");
}

TEST(InitBaseOrder, BeginsAnewAfterAFailure) {
  SetLogCallback(&LogAndFail);
  Steps().clear();
  EXPECT_THROW(InitBase(1), std::runtime_error);
  EXPECT_THROW(InitBase(1), std::runtime_error);
  DisableLogCallback(&LogAndFail);
  EXPECT_THAT(Steps(), ElementsAre("xmlInitParser", StartsWith("WinSock Description: "), "xmlInitParser",
                                   StartsWith("WinSock Description: ")));
  InitBase(2);
}
#endif

TEST(InitQsThread, DoesNothing) {
  const LogCapture log;
  for (const int phase : {1, 2, 3}) {
    InitQsThread(phase);
  }
  EXPECT_THAT(log.Texts(), IsEmpty());
}

}  // namespace
