#include <QSbase/errors.h>
#include <QSbase/log/filelog.h>
#include <QSbase/log/log.h>
#include <QSbase/process.h>

#include <common/logcapture.h>
#include <common/platform.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

thread_local bool failNextArray = false;

}  // namespace

// The buffer for formatting is allocated with the form that returns null.
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  if (failNextArray) {
    failNextArray = false;
    return nullptr;
  }
  try {
    return ::operator new[](size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace {

using qsbase::testing::LogCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned int kInfo = 0x10000000;
constexpr unsigned int kWarning = 0x20000000;
constexpr unsigned int kError = 0x40000000;

/// Keeps the lines of the default formatter from the outputs.
class LineCapture {
 public:
  LineCapture() : _before(SetLogLineFormatter(&Format)) { Lines().clear(); }
  ~LineCapture() { SetLogLineFormatter(_before); }
  LineCapture(const LineCapture&) = delete;
  LineCapture& operator=(const LineCapture&) = delete;

  static std::vector<std::string>& Lines() {
    static std::vector<std::string> lines;
    return lines;
  }

  /// The only line, without its time.
  static std::string Line() {
    EXPECT_EQ(Lines().size(), 1U);
    return Lines().empty() ? "" : Lines().front().substr(Lines().front().find('\t') + 1);
  }

 private:
  static bool Format(const MsgEntry& entry, std::string& line) {
    EXPECT_EQ(line, "");
    EXPECT_TRUE(DefaultLogLineFormatter(entry, line));
    Lines().push_back(line);
    return false;
  }

  LogLineFormatter _before;
};

std::string Thread() { return std::to_string(QsGetCurrentThreadId()); }

// ---- flag words and entries ----

TEST(FlagsToMessageType, InfoGoesBeforeErrorBeforeWarning) {
  for (unsigned int bits = 0; bits < 8; ++bits) {
    const unsigned int flags = bits << 28U;
    const MessageType expected = (bits & 1U) != 0   ? MsgInfo
                                 : (bits & 4U) != 0 ? MsgError
                                 : (bits & 2U) != 0 ? MsgWarning
                                                    : MsgInfo;
    EXPECT_EQ(FlagsToMessageType(flags), expected) << flags;
    EXPECT_EQ(FlagsToMessageType(flags | 0x8FFFFFFFU), expected) << flags;  // other bits are ignored
  }
}

TEST(GetMsgTypeString, HasOneLetterPerType) {
  EXPECT_EQ(GetMsgTypeString(MsgError), "E");
  EXPECT_EQ(GetMsgTypeString(MsgWarning), "W");
  EXPECT_EQ(GetMsgTypeString(MsgInfo), "I");
  EXPECT_EQ(GetMsgTypeString(static_cast<MessageType>(3)), "U");
  EXPECT_EQ(GetMsgTypeString(static_cast<MessageType>(-1)), "U");
  EXPECT_EQ(&GetMsgTypeString(MsgError), &GetMsgTypeString(MsgError));
}

TEST(MsgEntry, TakesLevelBeforeAlert) {
  for (const MsgEntry& entry : {MsgEntry(MsgWarning, "text", 3, 7), MsgEntry(MsgWarning, std::string("text"), 3, 7)}) {
    EXPECT_EQ(entry.type, MsgWarning);
    EXPECT_EQ(entry.text, "text");
    EXPECT_EQ(entry.level, 3);
    EXPECT_EQ(entry.alert, 7);
    EXPECT_EQ(entry.threadId, QsGetCurrentThreadId());
  }
}

TEST(MsgEntry, TakesAFlagWordApart) {
  for (const MsgEntry& entry : {MsgEntry(0x2000FE63U, "text"), MsgEntry(0x2000FE63U, std::string("text"))}) {
    EXPECT_EQ(entry.type, MsgWarning);
    EXPECT_EQ(entry.level, 0x63);
    EXPECT_EQ(entry.alert, 0xFE);
  }
}

TEST(MsgEntry, ItsTimeIsNow) {
  const double before = QsDateTime::Now();
  const MsgEntry entry(kInfo, "text");
  const double after = QsDateTime::Now();
  EXPECT_LE(before, entry.time);
  EXPECT_LE(entry.time, after);
}

// That of the system's clock: on Windows the variable has no say in it.
TEST(MsgEntry, ItsTimeIsLocal) {
  qsbase::testing::SetEnvironment("TZ", "XYZ-03:33:21");
  const double before = QsDateTime::Now();
  if (!qsbase::testing::kOnWindows) {
    ASSERT_GT(before - QsDateTime::UTCNow(), 0.14);
  }
  for (int i = 0; i < 3; ++i) {
    const MsgEntry entry(kInfo, "text");
    EXPECT_LE(before, entry.time);
    EXPECT_LE(entry.time, QsDateTime::Now());
  }
}

TEST(MsgEntry, ANullTextCountsAsEmpty) {
  const char* const none = nullptr;
  EXPECT_EQ(MsgEntry(kInfo, none).text, "");
  EXPECT_EQ(MsgEntry(MsgInfo, none, 0, 0).text, "");
}

// ---- formatting ----

TEST(QsLogMsg, AFormatWithPercentIsFormatted) {
  const LogCapture log;
  QsLogMsg(kError, "%d%% of %s", 50, "all");
  ASSERT_THAT(log.Texts(), ElementsAre("50% of all"));
  EXPECT_EQ(log.Messages()[0].flags, kError);
}

TEST(QsLogMsg, AFormatWithoutPercentIsTakenAsItStands) {
  const LogCapture log;
  const std::string format = "plain \\n text";
  QsLogMsg(kInfo, format.c_str(), 5);
  EXPECT_THAT(log.Texts(), ElementsAre(format));
}

TEST(QsLogMsg, LongTextsWithoutPercentAreNotCut) {
  const LogCapture log;
  const std::string text(100000, 'x');
  QsLogMsg(kInfo, text.c_str(), 0);
  EXPECT_THAT(log.Texts(), ElementsAre(text));
}

TEST(QsLogMsg, ANullFormatLogsNothing) {
  const LogCapture log;
  const char* volatile none = nullptr;
  QsLogMsg(kInfo, none, 0);
  QsLogAlert(kInfo, 1, none, 0);
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST(QsLogMsg, TheStringFormIsNeverFormatted) {
  const LogCapture log;
  QsLogMsg(kInfo, std::string("50%"));
  QsLogMsg(kInfo, std::string("%s%n"));
  EXPECT_THAT(log.Texts(), ElementsAre("50%", "%s%n"));
}

TEST(QsLogMsg, AFormattedTextIsCutAt32767Characters) {
  const LogCapture log;
  for (const std::size_t length : {32766U, 32767U, 32768U, 100000U}) {
    const std::string text = std::string(length - 1, 'x') + "y";
    QsLogMsg(kInfo, "%s", text.c_str());
    EXPECT_EQ(log.Texts().back(), text.substr(0, 32767)) << length;
  }
}

TEST(QsLogMsg, TextsOfEveryLengthArriveWhole) {
  LogCapture log;
  for (std::size_t length = 0; length < 2000; ++length) {
    const std::string text(length, 'x');
    QsLogMsg(kInfo, "%s", text.c_str());
    ASSERT_EQ(log.Texts().back(), text);
    log.Clear();
  }
}

TEST(QsLogMsg, ALonePercentEndsTheText) {
  const LogCapture log;
  const std::string format = "got %d of 50%";
  QsLogMsg(kInfo, format.c_str(), 7);
  QsLogMsg(kInfo, std::string("%").c_str(), 7);
  EXPECT_THAT(log.Texts(), ElementsAre("got 7 of 50", ""));
}

TEST(QsLogMsg, ALonePercentAfterALongTextEndsIt) {
  const LogCapture log;
  const std::string start(5000, 'x');
  QsLogMsg(kInfo, (start + "%d%").c_str(), 7);
  EXPECT_THAT(log.Texts(), ElementsAre(start + "7"));
}

TEST(QsLogMsg, WithoutMemoryForTheBufferTheMessageIsLost) {
  const LogCapture log;
  failNextArray = true;
  QsLogMsg(kInfo, "%s", std::string(10000, 'x').c_str());
  ASSERT_FALSE(failNextArray);
  QsLogMsg(kInfo, "%d", 2);
  EXPECT_THAT(log.Texts(), ElementsAre("2"));
}

TEST(QsLogAlert, AddsTheLowByteToTheAlertBits) {
  const LogCapture log;
  struct {
    unsigned int flags;
    int alert;
    unsigned int expected;
  } const cases[] = {
      {0x20000000, 2, 0x20000200},   {0x20000100, 2, 0x20000300},     {0x10000004, 0, 0x10000004},
      {0x10000000, -1, 0x1000FF00},  {0x10000000, 0x1FF, 0x1000FF00}, {0x1000F000, 0x0F, 0x1000FF00},
      {0x10000000, 256, 0x10000000},
  };
  for (const auto& c : cases) {
    log.Messages();
    QsLogAlert(c.flags, c.alert, "%s", "text");
    EXPECT_EQ(log.Messages().back().flags, c.expected);
    QsLogAlert(c.flags, c.alert, std::string("50%"));
    EXPECT_EQ(log.Messages().back().flags, c.expected);
    EXPECT_EQ(log.Messages().back().text, "50%");
  }
}

// ---- the level ----

TEST(QsSetLogLevel, IsZeroAtStartAndTheSameLevelLogsNothing) {
  const LogCapture log;
  EXPECT_EQ(QsGetLogLevel(), 0);
  QsSetLogLevel(0);
  EXPECT_THAT(log.Texts(), IsEmpty());
  QsSetLogLevel(-2);
  QsSetLogLevel(-2);
  EXPECT_EQ(QsGetLogLevel(), -2);
  ASSERT_THAT(log.Texts(), ElementsAre("Setting Log Level to -2"));
  EXPECT_EQ(log.Messages()[0].flags, kInfo);
}

int levelSeen = -1;

TEST(QsSetLogLevel, TheMessageIsLoggedWhileTheOldLevelHolds) {
  SetLogCallback([](unsigned int, const char*) { levelSeen = QsGetLogLevel(); });
  QsSetLogLevel(3);
  EXPECT_EQ(levelSeen, 0);
  EXPECT_EQ(QsGetLogLevel(), 3);
}

TEST(QsLogMsg, TheCoreFiltersNothingByLevel) {
  const LogCapture log;
  QsLogMsg(kInfo | 255U, std::string("text"));
  EXPECT_EQ(log.Texts().size(), 1U);
}

// ---- callbacks ----

int calls[65];

template <int N>
void Count(unsigned int, const char*) {
  ++calls[N];
}

template <int... N>
std::vector<LogCallback> Callbacks(std::integer_sequence<int, N...>) {
  return {&Count<N>...};
}

const std::vector<LogCallback> all = Callbacks(std::make_integer_sequence<int, 65>());

TEST(SetLogCallback, Takes64AndNoMore) {
  for (int i = 0; i < 64; ++i) {
    SetLogCallback(all[static_cast<std::size_t>(i)]);
  }
  try {
    SetLogCallback(all[64]);
    FAIL() << "took the 65th";
  } catch (const ExBase& error) {
    EXPECT_EQ(error.GetErrorText(), "Error adding logcallback: no free entries available!");
  }
  EXPECT_NO_THROW(SetLogCallback(all[63]));
  QsLogMsg(kInfo, std::string("text"));
  for (int i = 0; i < 64; ++i) {
    EXPECT_EQ(calls[i], 1) << i;
  }
  EXPECT_EQ(calls[64], 0);
}

TEST(SetLogCallback, RegisteringTwiceUsesOneEntry) {
  SetLogCallback(all[0]);
  SetLogCallback(all[0]);
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(calls[0], 1);
  DisableLogCallback(all[0]);
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(calls[0], 1);
  SetLogCallback(all[0]);
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(calls[0], 2);
}

TEST(SetLogCallback, NullIsIgnored) {
  const LineCapture lines;
  SetLogCallback(nullptr);
  DisableLogCallback(nullptr);
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(LineCapture::Lines().size(), 1U);
}

TEST(DisableLogCallback, AnUnknownOneIsIgnored) {
  SetLogCallback(all[0]);
  DisableLogCallback(all[1]);
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(calls[0], 1);
  EXPECT_EQ(calls[1], 0);
}

TEST(DisableLogCallbacks, EnableRestoresExactlyThoseThatWereEnabled) {
  SetLogCallback(all[0]);
  SetLogCallback(all[1]);
  SetLogCallback(all[2]);
  DisableLogCallback(all[1]);
  DisableLogCallbacks();
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(calls[0] + calls[1] + calls[2], 0);
  EnableLogCallbacks();
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(calls[0], 1);
  EXPECT_EQ(calls[1], 0);
  EXPECT_EQ(calls[2], 1);
}

TEST(DisableLogCallbacks, TwiceForgetsWhatWasEnabled) {
  SetLogCallback(all[0]);
  DisableLogCallbacks();
  DisableLogCallbacks();
  EnableLogCallbacks();
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(calls[0], 0);
}

TEST(EnableLogCallbacks, TheSavedStateStays) {
  SetLogCallback(all[0]);
  DisableLogCallbacks();
  EnableLogCallbacks();
  DisableLogCallback(all[0]);
  EnableLogCallbacks();
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(calls[0], 1);
}

TEST(QsLogMsg, EveryCallbackRunsAndTheDefaultLineDoesNot) {
  const LineCapture lines;
  SetLogCallback(all[0]);
  SetLogCallback(all[1]);
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(calls[0] + calls[1], 2);
  EXPECT_THAT(LineCapture::Lines(), IsEmpty());
  DisableLogCallbacks();
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(LineCapture::Lines().size(), 1U);
}

TEST(QsLogMsg, AnExceptionOfACallbackPassesOn) {
  SetLogCallback([](unsigned int, const char* text) { throw ExBase(text); });
  EXPECT_THROW(QsLogMsg(kInfo, "%s", "text"), ExBase);
  EXPECT_THROW(QsLogMsg(kInfo, std::string("text")), ExBase);
  EXPECT_THROW(QsLogAlert(kInfo, 1, "%s", "text"), ExBase);
}

TEST(QsLogMsg, ACallbackMayLog) {
  static const LogCapture log;
  SetLogCallback([](unsigned int, const char* text) {
    if (std::string(text) == "outer") {
      QsLogMsg(kInfo, std::string("inner"));
    }
  });
  QsLogMsg(kInfo, std::string("outer"));
  EXPECT_THAT(log.Texts(), ElementsAre("outer", "inner"));
}

void Once(unsigned int, const char*) {
  ++calls[0];
  DisableLogCallback(&Once);
}

TEST(QsLogMsg, ACallbackMayDisableItself) {
  const LineCapture lines;
  SetLogCallback(&Once);
  QsLogMsg(kInfo, std::string("to the callback"));
  EXPECT_THAT(LineCapture::Lines(), IsEmpty());
  QsLogMsg(kInfo, std::string("to the line"));
  EXPECT_EQ(calls[0], 1);
  EXPECT_EQ(LineCapture::Lines().size(), 1U);
}

TEST(QsLogMsg, CallbacksSeeATextUpToItsFirstZeroByte) {
  const std::string text("a\0b", 3);
  {
    const LogCapture log;
    QsLogMsg(kInfo, text);
    EXPECT_THAT(log.Texts(), ElementsAre("a"));
  }
  const LineCapture lines;
  QsLogMsg(kInfo, text);
  EXPECT_EQ(LineCapture::Line(), "I\t" + text + "\t0\t" + Thread() + "\n");
}

TEST(QsLogMsg, RunsOnTheCallersThread) {
  static std::atomic<int> id{0};
  SetLogCallback([](unsigned int, const char*) { id = QsGetCurrentThreadId(); });
  std::thread([] {
    QsLogMsg(kInfo, std::string("text"));
    EXPECT_EQ(id, QsGetCurrentThreadId());
  }).join();
}

TEST(QsLogMsg, ThreadsMayLogWhileOthersRegister) {
  static std::atomic<int> received{0};
  const LogCallback permanent = [](unsigned int, const char*) { ++received; };
  SetLogCallback(permanent);
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 2000; ++i) {
        QsLogMsg(kInfo, "%d", i);
      }
    });
  }
  threads.emplace_back([] {
    for (int i = 0; i < 2000; ++i) {
      SetLogCallback([](unsigned int, const char*) {});
      QsSetLogLevel(i % 2);
      SetLogLineFormatter(GetLogLineFormatter());
    }
  });
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(received, 6000 + 1999);  // and the announcements of the level
}

TEST(SetLogCallback, TwoThreadsThatRegisterTheSameUseOneEntry) {
  for (std::size_t i = 0; i < 60; ++i) {
    std::thread other([i] { SetLogCallback(all[i]); });
    SetLogCallback(all[i]);
    other.join();
  }
  QsLogMsg(kInfo, std::string("text"));
  for (int i = 0; i < 60; ++i) {
    EXPECT_EQ(calls[i], 1) << i;
  }
}

// ---- the last error ----

TEST(QsLogMsg, LeavesTheLastErrorAlone) {
  QsSetLastError(77);
  QsLogMsg(kInfo, std::string("default line"));
  EXPECT_EQ(QsGetLastError(), 77);
  SetLogCallback([](unsigned int, const char* text) {
    QsSetLastError(5);
    if (std::string(text) == "throw") {
      throw ExBase(text);
    }
  });
  QsLogMsg(kInfo, "%d%%", 1);
  EXPECT_EQ(QsGetLastError(), 77);
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(QsGetLastError(), 77);
  QsLogAlert(kInfo, 1, std::string("text"));
  EXPECT_EQ(QsGetLastError(), 77);
  QsLogMsg(kInfo, std::string("50%").c_str(), 1);  // the C library fails on this one
  EXPECT_EQ(QsGetLastError(), 77);
  EXPECT_THROW(QsLogMsg(kInfo, std::string("throw")), ExBase);
  EXPECT_EQ(QsGetLastError(), 77);
  EXPECT_THROW(QsLogMsg(kInfo, "%s", "throw"), ExBase);
  EXPECT_EQ(QsGetLastError(), 77);
  QsSetLogLevel(1);
  EXPECT_EQ(QsGetLastError(), 77);
}

TEST(MsgEntry, MakingAndFormattingOneLeavesTheLastErrorAlone) {
  QsSetLastError(77);
  const MsgEntry entry(MsgError, "text", 1, 2);
  EXPECT_EQ(QsGetLastError(), 77);
  const MsgEntry flagged(kInfo, std::string("text"));
  EXPECT_EQ(QsGetLastError(), 77);
  std::string line;
  EXPECT_TRUE(DefaultLogLineFormatter(entry, line));
  EXPECT_EQ(QsGetLastError(), 77);
}

// Where it is a value of its own, the C library's error is left alone, too.
TEST(QsLogMsg, LeavesErrnoAlone) {
  const std::string text(1000, 'x');
  SetLogCallback([](unsigned int, const char*) { errno = 5; });
  errno = 33;
  QsLogMsg(kInfo, text);
  EXPECT_EQ(errno, 33);
  QsLogMsg(kInfo, "%5d %s", 1, text.c_str());
  EXPECT_EQ(errno, 33);
  DisableLogCallbacks();
  QsLogMsg(kInfo, "%5d %s", 1, text.c_str());
  EXPECT_EQ(errno, 33);
}

TEST(DefaultLogLine, TheFormatterMayChangeTheLastError) {
  SetLogLineFormatter([](const MsgEntry&, std::string& line) {
    QsSetLastError(5);
    errno = 5;
    line = "text";
    return true;
  });
  for (const bool console : {false, true}) {
    SetEnabledLog(false, console);
    QsSetLastError(77);
    QsLogMsg(kInfo, std::string("text"));
    EXPECT_EQ(QsGetLastError(), 77);
    QsLogMsg(kInfo, "%d %.3f", 1, 1.5);
    EXPECT_EQ(QsGetLastError(), 77);
    DefaultLogLine(kInfo, "text");
    EXPECT_EQ(QsGetLastError(), 77);
    DoLogMsg("text");
    EXPECT_EQ(QsGetLastError(), 77);
  }
}

TEST(QsLogMsg, TheMessageSeesTheLastErrorOfTheCaller) {
  const LogCapture log;
  QsSetLastError(2);
  QsLogMsg(kInfo, "%s", QsErrorMessage(QsGetLastError()).c_str());
  EXPECT_THAT(log.Texts(), ElementsAre(QsErrorMessage(2)));
}

// ---- the default line ----

TEST(DefaultLogLine, HasTheFieldsOfTheEntry) {
  const LineCapture lines;
  QsLogMsg(0x20000303U, std::string("a\tb"));
  EXPECT_EQ(LineCapture::Line(), "W (Alert=3)\t   a b\t3\t" + Thread() + "\n");
  std::string time = LineCapture::Lines()[0].substr(0, 24);
  std::replace_if(
      time.begin(), time.end(), [](char c) { return c >= '0' && c <= '9'; }, '9');
  EXPECT_EQ(time, "9999-99-99 99:99:99.999\t");
}

TEST(DefaultLogLine, AnInfoAndErrorWordIsAnInfo) {
  const LineCapture lines;
  QsLogMsg(0x50000000U, std::string("text"));
  EXPECT_EQ(LineCapture::Line(), "I\ttext\t0\t" + Thread() + "\n");
}

TEST(DefaultLogLine, AnAlertFollowsTheLetter) {
  const LineCapture lines;
  QsLogAlert(kWarning, 2, "%s", "text");
  EXPECT_EQ(LineCapture::Line(), "W (Alert=2)\ttext\t0\t" + Thread() + "\n");
}

TEST(DefaultLogLine, Level99IsOutputAnd100IsNot) {
  const LineCapture lines;
  QsLogMsg(kInfo | 100U, std::string("text"));
  QsLogMsg(kInfo | 255U, std::string("text"));
  EXPECT_THAT(LineCapture::Lines(), IsEmpty());
  QsLogMsg(kInfo | 99U, std::string("text"));
  EXPECT_EQ(LineCapture::Line(), "I\t" + std::string(99, ' ') + "text\t99\t" + Thread() + "\n");
  const LogCapture log;
  QsLogMsg(kInfo | 100U, std::string("text"));
  EXPECT_EQ(log.Texts().size(), 1U);
}

TEST(DefaultLogLine, AnEmptyTextGivesNoLine) {
  const LineCapture lines;
  QsLogMsg(kInfo, std::string());
  DefaultLogLine(kInfo, static_cast<const char*>(nullptr));
  EXPECT_THAT(LineCapture::Lines(), IsEmpty());
}

TEST(DefaultLogLine, WithoutAFormatterThereIsNoLine) {
  const LogLineFormatter before = SetLogLineFormatter(nullptr);
  EXPECT_EQ(before, &DefaultLogLineFormatter);
  EXPECT_EQ(GetLogLineFormatter(), nullptr);
  SetEnabledLog(false, true);
  testing::internal::CaptureStdout();
  QsLogMsg(kInfo, std::string("text"));
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(SetLogLineFormatter(before), nullptr);
}

TEST(DefaultLogLine, TheFormatterDecidesWhatIsOutput) {
  testing::internal::CaptureStdout();
  SetLogLineFormatter([](const MsgEntry& entry, std::string& line) {
    line = "<" + entry.text + ">\n";
    return entry.text != "no";
  });
  SetEnabledLog(false, true);
  DefaultLogLine(kInfo, "no");
  DefaultLogLine(kInfo, "yes");
  DefaultLogLine(MsgEntry(kInfo, "entry"));
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "<Set Console Logging to Enabled>\n<yes>\n<entry>\n");
}

TEST(DefaultLogLine, AFormatterMayLog) {
  static std::vector<std::string> seen;
  SetLogLineFormatter([](const MsgEntry& entry, std::string&) {
    seen.push_back(entry.text);
    if (entry.text == "outer") {
      QsLogMsg(kInfo, std::string("inner"));
    }
    return false;
  });
  QsLogMsg(kInfo, std::string("outer"));
  EXPECT_THAT(seen, ElementsAre("outer", "inner"));
}

TEST(DefaultLogLine, AnExceptionOfTheFormatterPassesOn) {
  SetLogLineFormatter([](const MsgEntry& entry, std::string&) -> bool { throw ExBase(entry.text); });
  QsSetLastError(77);
  EXPECT_THROW(QsLogMsg(kInfo, "%s", "text"), ExBase);
  EXPECT_THROW(DefaultLogLine(kInfo, "text"), ExBase);
  EXPECT_EQ(QsGetLastError(), 77);
}

TEST(DefaultLogLine, IsFormattedAlsoWhenBothOutputsAreOff) {
  const LineCapture lines;
  QsLogMsg(kInfo, std::string("text"));
  EXPECT_EQ(LineCapture::Lines().size(), 1U);
}

/// The line built a second way, by a string stream.
std::string StreamedLine(const MsgEntry& entry) {
  std::ostringstream line;
  line.width(12);
  line << DateTime2string(entry.time, true, true) << '\t' << GetMsgTypeString(entry.type);
  if (entry.alert >= 1) {
    line << " (Alert=" << entry.alert << ")";
  }
  line << '\t';
  for (int i = 0; i < entry.level; ++i) {
    line << ' ';
  }
  for (const char c : entry.text) {
    line << (c == '\t' ? ' ' : c);
  }
  line << '\t' << entry.level << '\t';
  if (entry.threadId == 0) {
    line << "main";
  } else {
    line << entry.threadId;
  }
  line << '\n';
  return line.str();
}

TEST(DefaultLogLineFormatter, WritesWhatAStringStreamWould) {
  const std::string texts[] = {
      "", "text", "\t\ta\tb\t", std::string("zero\0byte", 9), "line\r\nfeed", "\xE4\xFF", std::string(5000, 'x')};
  const double times[] = {41318.424453125, 1.5,     1.0, 0.999999, -1.25,          2958465.99,
                          2958465.9999999, 2958466, 1e9, 36526.0,  45000.49999999, 45000.5};
  for (const std::string& text : texts) {
    for (const int level : {-2147483647 - 1, -1, 0, 1, 99, 255}) {
      for (const int alert : {-1, 0, 1, 255, 2147483647}) {
        for (const int thread : {0, 1, -5, 2147483647}) {
          MsgEntry entry(static_cast<MessageType>(alert & 3), text, level, alert);
          entry.threadId = thread;
          for (const double time : times) {
            entry.time = QsDateTime(time);
            std::string line = "what was in it";
            ASSERT_TRUE(DefaultLogLineFormatter(entry, line));
            ASSERT_EQ(line, StreamedLine(entry));
          }
        }
      }
    }
  }
}

TEST(DefaultLogLineFormatter, WritesTheTimeOfTheEntry) {
  MsgEntry entry(MsgError, "text", 0, 0);
  entry.time = QsDateTime(2013, 2, 13, 10, 11, 12, 250);
  entry.threadId = 0;
  std::string line;
  ASSERT_TRUE(DefaultLogLineFormatter(entry, line));
  EXPECT_EQ(line, "2013-02-13 10:11:12.250\tE\ttext\t0\tmain\n");
}

// ---- the console ----

TEST(DoLogMsg, WritesTheLineToTheConsoleUnchanged) {
  SetEnabledLog(false, true);
  testing::internal::CaptureStdout();
  DoLogMsg("a %s\r\nb");
  DoLogMsg("");
  DoLogMsg("\n");
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "a %s\r\nb\n");
}

TEST(DoLogMsg, WritesNothingAtStart) {
  testing::internal::CaptureStdout();
  DoLogMsg("text\n");
  QsLogMsg(kError, std::string("text"));
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
