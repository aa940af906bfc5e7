#include <QSbase/errors.h>
#include <QSbase/killguard.h>
#include <QSbase/text/guid.h>

#include <common/cancellation.h>
#include <common/logcapture.h>
#include <common/platform.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <objbase.h>
#else
#include <pthread.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

using namespace std::string_literals;

// ---- The system's source, which a test may take away ----

namespace {

std::atomic<bool> sourceFails{false};

std::atomic<int> callsAtOnce{0};
std::atomic<bool> calledTwiceAtOnce{false};

// Notices a second call while one is under way.
class Call {
 public:
  Call() {
    if (++callsAtOnce > 1) {
      calledTwiceAtOnce = true;
    }
  }
  ~Call() { --callsAtOnce; }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
};

}  // namespace

#ifdef _WIN32

namespace {

HRESULT WINAPI WatchedCoCreateGuid(GUID* guid) {
  const Call call;
  if (sourceFails) {
    return E_FAIL;
  }
  using Function = HRESULT(WINAPI*)(GUID*);
  static const auto system =
      reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(LoadLibraryA("ole32.dll"), "CoCreateGuid")));
  return system(guid);
}

}  // namespace

// What an import library would bring: the pointer that calls of the function go through.
extern "C" {
#ifdef _WIN64
HRESULT(WINAPI* importedCoCreateGuid)(GUID*) __asm__("__imp_CoCreateGuid") = &WatchedCoCreateGuid;
#else
HRESULT(WINAPI* importedCoCreateGuid)(GUID*) __asm__("__imp__CoCreateGuid@4") = &WatchedCoCreateGuid;
#endif
}

#else

namespace {

// 0: as the system does; else the source gives this many bytes in a call, and every second call is interrupted.
std::atomic<int> bytesInACall{0};
std::atomic<bool> interrupts{false};

}  // namespace

extern "C" ssize_t getrandom(void* buffer, size_t length, unsigned int flags) {
  pthread_testcancel();  // as the system's does
  const Call call;
  if (sourceFails) {
    errno = ENOSYS;
    return -1;
  }
  if (bytesInACall != 0) {
    length = std::min(length, static_cast<size_t>(bytesInACall));
    interrupts = !interrupts;
    if (interrupts) {
      errno = EINTR;
      return -1;
    }
  }
  return syscall(SYS_getrandom, buffer, length, flags);
}

// ---- The first use, which makes the lock ----

namespace {

thread_local bool isFirstUse = false;
int allocationsOfFirstUse = 0;
bool firstUseMayBeKilled = false;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (isFirstUse) {
    ++allocationsOfFirstUse;
    firstUseMayBeKilled = firstUseMayBeKilled || qsbase::detail::killState.holds == 0;
  }
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace {

bool CreateFirst() {
  isFirstUse = true;
  QsGUID guid;
  guid.Create();
  isFirstUse = false;
  return guid.IsValid();
}

// Before main, so ahead of every test.
const bool createdFirst = CreateFirst();

}  // namespace

#endif

namespace {

using qsbase::testing::LogCapture;

using Data = std::array<unsigned char, 16>;

Data DataOf(const QsGUID& guid) {
  Data data;
  std::copy_n(guid.GetData(), data.size(), data.begin());
  return data;
}

constexpr Data kZeroes{};
constexpr Data kRising = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                          0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
const std::string kRisingText = "00112233-4455-6677-8899-AABBCCDDEEFF";

// The text by the C library, in the form that the interface is defined by.
std::string Printed(const Data& d) {
  char text[64];
  std::snprintf(text, sizeof(text), "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", d[0], d[1],
                d[2], d[3], d[4], d[5], d[6], d[7], d[8], d[9], d[10], d[11], d[12], d[13], d[14], d[15]);
  return text;
}

QsGUID FromNoBraces(const std::string& text) {
  QsGUID guid;
  guid.FromStringNoBraces(text);
  return guid;
}

QsGUID FromData(const Data& data) { return FromNoBraces(Printed(data)); }

std::string Error(const auto& action) {
  try {
    action();
  } catch (const ExBase& error) {
    return error.GetErrorText();
  }
  return "nothing thrown";
}

std::string BracesError(const std::string& text) {
  return "QsGUID::FromString: Given value is no UUID: '" + text + "'";
}

std::string NoBracesError(const std::string& text) {
  return "QsGUID::FromStringNoBraces: Given value is no UUID: '" + text + "'";
}

void ExpectCleared(const QsGUID& guid) {
  EXPECT_FALSE(guid.IsValid());
  EXPECT_EQ(kZeroes, DataOf(guid));
}

// The object held something before.
void ExpectRefused(const std::string& text) {
  QsGUID guid = FromNoBraces(kRisingText);
  EXPECT_EQ(NoBracesError(text), Error([&] { guid.FromStringNoBraces(text); }));
  ExpectCleared(guid);
  EXPECT_FALSE(QsGUID::IsValidGUID(text, false)) << text;
}

void ExpectRefusedInBraces(const std::string& text) {
  QsGUID guid = FromNoBraces(kRisingText);
  EXPECT_EQ(BracesError(text), Error([&] { guid.FromString(text); }));
  ExpectCleared(guid);
  EXPECT_FALSE(QsGUID::IsValidGUID(text, true)) << text;
}

bool IsHexDigit(int c) { return c != '\0' && std::strchr("0123456789ABCDEFabcdef", c) != nullptr; }

const std::set<std::size_t> kDashes = {8, 13, 18, 23};

}  // namespace

TEST(QsGUID, StartsNotValid) {
  const QsGUID guid;
  ExpectCleared(guid);
  EXPECT_EQ(16U, guid.GetDataSize());
}

TEST(QsGUID, CreateMakesVersion4) {
  // The variant is 10 in the upper bits of byte 8. The version stands in byte 6; Windows has bytes 6 and 7 as a number,
  // the lower byte first in memory.
  const std::size_t versionByte = qsbase::testing::kOnWindows ? 7 : 6;
  for (int i = 0; i < 1000; ++i) {
    QsGUID guid;
    guid.Create();
    ASSERT_TRUE(guid.IsValid());
    ASSERT_EQ(0x40, guid.GetData()[versionByte] & 0xF0);
    ASSERT_EQ(0x80, guid.GetData()[8] & 0xC0);
    ASSERT_FALSE(guid.IsNULLGuid());
  }
}

TEST(QsGUID, EveryFreeBitVaries) {
  Data ones{};
  Data zeroes{};
  for (int i = 0; i < 1000; ++i) {
    QsGUID guid;
    guid.Create();
    for (std::size_t at = 0; at < 16; ++at) {
      ones[at] = static_cast<unsigned char>(ones[at] | guid.GetData()[at]);
      zeroes[at] = static_cast<unsigned char>(zeroes[at] | ~guid.GetData()[at]);
    }
  }
  const std::size_t versionByte = qsbase::testing::kOnWindows ? 7 : 6;
  for (std::size_t at = 0; at < 16; ++at) {
    const int fixed = at == versionByte ? 0xF0 : at == 8 ? 0xC0 : 0;
    EXPECT_EQ(0xFF & ~fixed, ones[at] & zeroes[at]) << at;
  }
}

TEST(QsGUID, CreatedOnesDiffer) {
  std::set<std::string> texts;
  QsGUID guid;
  for (int i = 0; i < 2000; ++i) {
    guid.Create();
    texts.insert(guid.ToString());
  }
  EXPECT_EQ(2000U, texts.size());
}

TEST(QsGUID, CreateFromSeveralThreads) {
  calledTwiceAtOnce = false;
  std::vector<std::vector<QsGUID>> made(4);
  std::vector<std::thread> threads;
  for (std::vector<QsGUID>& mine : made) {
    threads.emplace_back([&mine] {
      for (int i = 0; i < 500; ++i) {
        mine.emplace_back().Create();
      }
    });
  }
  std::set<QsGUID> all;
  for (std::size_t i = 0; i < made.size(); ++i) {
    threads[i].join();
    all.insert(made[i].begin(), made[i].end());
  }
  EXPECT_EQ(2000U, all.size());
  EXPECT_FALSE(calledTwiceAtOnce);
}

TEST(QsGUID, WithoutASourceCreateLogsAndClears) {
  LogCapture log;
  QsGUID guid = FromNoBraces(kRisingText);
  sourceFails = true;
  guid.Create();
  sourceFails = false;
  ExpectCleared(guid);
  ASSERT_EQ(1U, log.Messages().size());
  EXPECT_EQ("Could not create GUID", log.Messages()[0].text);
  EXPECT_EQ(0x40000000U, log.Messages()[0].flags);
  guid.Create();
  EXPECT_TRUE(guid.IsValid());
  EXPECT_EQ(1U, log.Messages().size());
}

#ifndef _WIN32
// Else a kill in the middle of making the lock would let all others wait for it for good. Windows holds nothing back.
TEST(QsGUID, KillsAreHeldBackWhileTheLockIsMade) {
  EXPECT_TRUE(createdFirst);
  EXPECT_EQ(1, allocationsOfFirstUse);
  EXPECT_FALSE(firstUseMayBeKilled);
}

// The kernel's random source is a Linux matter.
TEST(QsGUID, CreateGoesOnAfterSignalsAndShortReads) {
  for (const int bytes : {1, 5, 15, 16}) {
    bytesInACall = bytes;
    QsGUID guid;
    guid.Create();
    QsGUID other;
    other.Create();
    bytesInACall = 0;
    EXPECT_TRUE(guid.IsValid());
    EXPECT_FALSE(guid == other);
    // All bytes are filled: 12 of them zero by chance, as left out ones would be, does not happen.
    EXPECT_LT(std::count(guid.GetData(), guid.GetData() + 16, 0), 8);
  }
}
#endif

#ifndef _WIN32
TEST(QsGUID, ACancellationWaitsUntilItIsCreated) {
  QsGUID guid;
  EXPECT_TRUE(qsbase::testing::EndsCancelled([&guid] {
    pthread_cancel(pthread_self());
    guid.Create();
  }));
  EXPECT_TRUE(guid.IsValid());
}
#endif

TEST(QsGUID, ClearMakesItNew) {
  QsGUID guid = FromNoBraces(kRisingText);
  guid.Clear();
  ExpectCleared(guid);
  EXPECT_TRUE(guid == QsGUID());
  guid.Clear();
  ExpectCleared(guid);
}

TEST(QsGUID, CopiesHoldTheSame) {
  const QsGUID guid = FromNoBraces(kRisingText);
  QsGUID copy(guid);
  EXPECT_TRUE(copy == guid);
  EXPECT_TRUE(copy.IsValid());
  copy.Clear();
  EXPECT_TRUE(guid.IsValid());
  copy = guid;
  EXPECT_EQ(kRising, DataOf(copy));
  EXPECT_TRUE(copy.IsValid());
}

TEST(QsGUID, TextShowsByteZeroFirst) {
  const QsGUID guid = FromData(kRising);
  EXPECT_EQ(kRising, DataOf(guid));
  EXPECT_EQ(kRisingText, guid.ToStringNoBraces());
  EXPECT_EQ("{" + kRisingText + "}", guid.ToString());
}

TEST(QsGUID, WithoutAValueThereIsNoText) {
  const QsGUID guid;
  EXPECT_EQ("Uninitialized GUID", Error([&] { (void)guid.ToString(); }));
  EXPECT_EQ("Uninitialized GUID", Error([&] { (void)guid.ToStringNoBraces(); }));
}

TEST(QsGUID, TextsAreWhatTheCLibraryPrints) {
  std::mt19937 random(36);
  for (int i = 0; i < 10000; ++i) {
    Data data;
    std::generate(data.begin(), data.end(), [&] { return static_cast<unsigned char>(random()); });
    const std::string text = Printed(data);
    const QsGUID guid = FromNoBraces(text);
    ASSERT_EQ(data, DataOf(guid));
    ASSERT_EQ(text, guid.ToStringNoBraces());
    ASSERT_EQ("{" + text + "}", guid.ToString());
    std::string lower = "{" + text + "}";
    for (char& c : lower) {
      c = static_cast<char>(std::tolower(c));
    }
    QsGUID again;
    again.FromString(lower);
    ASSERT_EQ(data, DataOf(again));
  }
}

TEST(QsGUID, EveryByteAtEveryPlace) {
  for (std::size_t at = 0; at < 16; ++at) {
    for (int value = 0; value < 256; ++value) {
      Data data{};
      data[at] = static_cast<unsigned char>(value);
      const QsGUID guid = FromData(data);
      ASSERT_EQ(data, DataOf(guid));
      ASSERT_EQ(Printed(data), guid.ToStringNoBraces());
    }
  }
}

TEST(QsGUID, ACreatedOneComesBackFromItsText) {
  QsGUID guid;
  guid.Create();
  QsGUID again;
  again.FromString(guid.ToString());
  EXPECT_TRUE(again == guid);
  EXPECT_EQ(guid.ToString(), again.ToString());
  again.FromStringNoBraces(guid.ToStringNoBraces());
  EXPECT_TRUE(again == guid);
}

TEST(QsGUID, WhiteSpaceAroundTheTextIsNothing) {
  const std::string space = "\t\n\v\f\r ";
  const QsGUID expected = FromData(kRising);
  EXPECT_TRUE(FromNoBraces(space + kRisingText + space) == expected);
  QsGUID guid;
  guid.FromString(space + "{" + kRisingText + "}" + space);
  EXPECT_TRUE(guid == expected);
  EXPECT_TRUE(QsGUID::IsValidGUID(" " + kRisingText, false));
  ExpectRefusedInBraces("{ " + kRisingText + "}");
  ExpectRefusedInBraces("{" + kRisingText + " }");
  ExpectRefused(kRisingText + "\0"s);
  ExpectRefused(kRisingText + "\xA0");
}

TEST(QsGUID, TheMessageQuotesTheTextAsItWasGiven) {
  ExpectRefused("");
  ExpectRefused("   ");
  ExpectRefused(" \t no GUID \r\n");
  ExpectRefused("%s %d\0x"s);
  ExpectRefusedInBraces("");
  ExpectRefusedInBraces(" \t no GUID \r\n");
}

TEST(QsGUID, TheLengthIsExact) {
  const std::string braced = "{" + kRisingText + "}";
  ExpectRefused(braced);
  ExpectRefused(kRisingText + "0");
  ExpectRefused(kRisingText.substr(1));
  ExpectRefused(kRisingText + "00");
  ExpectRefusedInBraces(kRisingText);
  ExpectRefusedInBraces(kRisingText + "00");
  ExpectRefusedInBraces(braced + "}");
  ExpectRefusedInBraces("{" + kRisingText.substr(1) + "}");
  ExpectRefusedInBraces("{}");
}

TEST(QsGUID, BracesStandAtTheEnds) {
  ExpectRefusedInBraces("(" + kRisingText + ")");
  ExpectRefusedInBraces("{" + kRisingText + "{");
  ExpectRefusedInBraces("}" + kRisingText + "}");
  ExpectRefusedInBraces("{" + kRisingText + "0");
  ExpectRefusedInBraces("0" + kRisingText + "}");
}

TEST(QsGUID, DigitsInPlaceOfTheDashesAreIgnored) {
  std::string digits = kRisingText;
  for (const std::size_t at : kDashes) {
    digits[at] = 'f';
  }
  EXPECT_EQ(kRising, DataOf(FromNoBraces(digits)));
  QsGUID guid;
  guid.FromString("{" + digits + "}");
  EXPECT_EQ(kRising, DataOf(guid));
  EXPECT_EQ(kRisingText, guid.ToStringNoBraces());
}

TEST(QsGUID, ADashElsewhereIsRefused) {
  std::string text = kRisingText;
  text[1] = '-';
  ExpectRefused(text);
  ExpectRefusedInBraces("{" + text + "}");
}

// Every byte at every place, by the rule itself.
TEST(QsGUID, TakesHexDigitsAndDashesInTheirPlacesOnly) {
  for (std::size_t at = 0; at < kRisingText.size(); ++at) {
    for (int c = 0; c < 256; ++c) {
      std::string text = kRisingText;
      text[at] = static_cast<char>(c);
      const bool good = IsHexDigit(c) || (c == '-' && kDashes.count(at) == 1);
      ASSERT_EQ(good, QsGUID::IsValidGUID(text, false)) << at << " " << c;
      ASSERT_EQ(good, QsGUID::IsValidGUID("{" + text + "}", true)) << at << " " << c;
      if (!good) {
        ExpectRefused(text);
      }
    }
  }
}

TEST(QsGUID, IsValidGUIDAsksForTheRightForm) {
  EXPECT_TRUE(QsGUID::IsValidGUID(kRisingText, false));
  EXPECT_FALSE(QsGUID::IsValidGUID(kRisingText, true));
  EXPECT_TRUE(QsGUID::IsValidGUID("{" + kRisingText + "}", true));
  EXPECT_FALSE(QsGUID::IsValidGUID("{" + kRisingText + "}", false));
  EXPECT_FALSE(QsGUID::IsValidGUID("", true));
  EXPECT_FALSE(QsGUID::IsValidGUID("", false));
}

TEST(QsGUID, AFailedReadingLeavesNothingBehind) {
  // The last digit is wrong: all bytes before it were read.
  QsGUID guid = FromNoBraces(kRisingText);
  EXPECT_THROW(guid.FromStringNoBraces("FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFG"), ExBase);
  ExpectCleared(guid);
  guid = FromNoBraces(kRisingText);
  EXPECT_THROW(guid.FromString("{FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFG}"), ExBase);
  ExpectCleared(guid);
}

TEST(QsGUID, ReadingReplacesTheValue) {
  QsGUID guid = FromNoBraces(kRisingText);
  guid.FromString("{00000000-0000-0000-0000-000000000001}");
  EXPECT_EQ(1, guid.GetData()[15]);
  EXPECT_EQ(0, guid.GetData()[1]);
}

TEST(QsGUID, NullIsValidAndZero) {
  EXPECT_FALSE(QsGUID().IsNULLGuid());
  EXPECT_TRUE(FromData(kZeroes).IsNULLGuid());
  for (std::size_t at = 0; at < 16; ++at) {
    Data data{};
    data[at] = 1;
    EXPECT_FALSE(FromData(data).IsNULLGuid()) << at;
  }
}

TEST(QsGUID, EqualNeedsBytesAndValidity) {
  EXPECT_TRUE(QsGUID() == QsGUID());
  EXPECT_FALSE(FromData(kZeroes) == QsGUID());
  EXPECT_FALSE(QsGUID() == FromData(kZeroes));
  EXPECT_TRUE(FromData(kRising) == FromData(kRising));
  for (std::size_t at = 0; at < 16; ++at) {
    Data data = kRising;
    data[at] ^= 0x80;
    EXPECT_FALSE(FromData(data) == FromData(kRising)) << at;
  }
}

TEST(QsGUID, OrderIsThatOfTheBytes) {
  std::mt19937 random(5);
  for (int i = 0; i < 2000; ++i) {
    Data left;
    std::generate(left.begin(), left.end(), [&] { return static_cast<unsigned char>(random()); });
    Data right = left;
    right[random() % 16] = static_cast<unsigned char>(random());
    right[random() % 16] = static_cast<unsigned char>(random());
    const bool less = std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end());
    ASSERT_EQ(less, FromData(left) < FromData(right));
  }
}

TEST(QsGUID, BytesCompareAsUnsigned) {
  const QsGUID low = FromNoBraces("7F000000-0000-0000-0000-000000000000");
  const QsGUID high = FromNoBraces("80000000-0000-0000-0000-000000000000");
  EXPECT_TRUE(low < high);
  EXPECT_FALSE(high < low);
  EXPECT_FALSE(low < low);
}

TEST(QsGUID, ValidAndNotValidHaveNoOrder) {
  const QsGUID none;
  const QsGUID null = FromData(kZeroes);
  const QsGUID some = FromData(kRising);
  EXPECT_FALSE(none < QsGUID());
  EXPECT_FALSE(none < null);
  EXPECT_FALSE(null < none);
  EXPECT_FALSE(none < some);
  EXPECT_FALSE(some < none);
}
