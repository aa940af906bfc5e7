#include <QSbase/allocationerror.h>
#include <QSbase/errors.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <thread>
#include <type_traits>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#endif

namespace {

std::string Fallback(const std::string& hex) { return "<unknown error: 0x" + hex + ">"; }

TEST(ExBase, PrependingBuildsAChainWithTheOutermostFirst) {
  ExBase error("m");
  error.PrependContext("A");
  EXPECT_EQ(error.GetErrorText(), "A >>> m");
  error.PrependContext("B");
  EXPECT_EQ(error.GetErrorText(), "B >>> A >>> m");
}

TEST(ExBase, CopiesKeepTheirOwnMessage) {
  ExBase first("m");
  ExBase copy(first);
  first.PrependContext("A");
  EXPECT_EQ(copy.GetErrorText(), "m");
  copy = first;
  EXPECT_EQ(copy.GetErrorText(), "A >>> m");
}

TEST(ExBase, AContextPrependedByAHandlerTravelsOn) {
  try {
    try {
      throw ExPrecondition("m");
    } catch (ExBase& error) {
      error.PrependContext("A");
      throw;
    }
  } catch (const ExPrecondition& error) {
    EXPECT_EQ(error.GetErrorText(), "A >>> m");
    return;
  }
  FAIL() << "lost on the way";
}

TEST(ExBase, MessagesMayHoldZeroBytes) {
  const std::string message("a\0b", 3);
  EXPECT_EQ(ExAssert(message).GetErrorText(), message);
}

TEST(ExTree, OnlyExMemoryAllocationAddsToItsMessage) {
  EXPECT_EQ(ExBase("x").GetErrorText(), "x");
  EXPECT_EQ(ExAssert("x").GetErrorText(), "x");
  EXPECT_EQ(ExInvalidRange("x").GetErrorText(), "x");
  EXPECT_EQ(ExPrecondition("x").GetErrorText(), "x");
  EXPECT_EQ(ExMemoryAllocation("x").GetErrorText(), "Memory allocation error: x");
}

TEST(ExTree, InvalidRangeIsCaughtAsAssertAndAsBase) {
  EXPECT_THROW(throw ExInvalidRange("x"), ExAssert);
  EXPECT_THROW(throw ExInvalidRange("x"), ExBase);
  EXPECT_THROW(throw ExPrecondition("x"), ExAssert);
}

TEST(ExTree, MemoryAllocationIsNoAssert) {
  EXPECT_THROW(
      {
        try {
          throw ExMemoryAllocation("x");
        } catch (const ExAssert&) {
          FAIL() << "caught as ExAssert";
        }
      },
      ExBase);
}

TEST(ExTree, StandsBesideTheStandardExceptions) {
  static_assert(!std::is_base_of_v<std::exception, ExBase>);
  static_assert(std::has_virtual_destructor_v<ExBase>);
}

TEST(ThrowAllocationError, NamesTheSourceAndTheLine) {
  try {
    qsbase::detail::ThrowAllocationError("QsLoadFilePart cannot allocate buffer!", "QSbase/support/filesupport", 42);
  } catch (const ExMemoryAllocation& error) {
    EXPECT_EQ(
        error.GetErrorText(),
        "Memory allocation error: QsLoadFilePart cannot allocate buffer! (file QSbase/support/filesupport, line 42");
    return;
  }
  FAIL() << "threw nothing";
}

TEST(QsLastError, IsKeptPerThread) {
  // Between setting and asking nothing may run but the two: starting a thread and joining it set the code, too.
  std::atomic<int> step{0};
  const auto waitFor = [&step](int value) {
    while (step != value) {
    }
  };
  int others = 0;
  std::thread other([&] {
    waitFor(1);
    QsSetLastError(7);
    others = QsGetLastError();
    step = 2;
  });
  QsSetLastError(5);
  step = 1;
  waitFor(2);
  const int mine = QsGetLastError();
  other.join();
  EXPECT_EQ(mine, 5);
  EXPECT_EQ(others, 7);
}

#ifdef _WIN32

TEST(QsLastError, IsTheSystems) {
  for (const DWORD code : {0UL, 5UL, 183UL, 0x2000ABCDUL, 0x80070005UL, 0xFFFFFFFFUL}) {
    SetLastError(code);
    EXPECT_EQ(QsGetLastError(), static_cast<int>(code));
    SetLastError(1);
    QsSetLastError(static_cast<int>(code));
    EXPECT_EQ(GetLastError(), code);
  }
  errno = ERANGE;
  QsSetLastError(5);
  EXPECT_EQ(errno, ERANGE) << "the C runtime's code is another";
  EXPECT_EQ(GetFileAttributesA("no such file"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(QsGetLastError(), ERROR_FILE_NOT_FOUND);
}

/// The system's text, the last line break in it removed; empty when there is none.
std::string SystemText(DWORD code) {
  char* text = nullptr;
  const DWORD length = FormatMessageA(0x1300, nullptr, code, 1024, reinterpret_cast<char*>(&text), 0, nullptr);
  std::string result(text == nullptr ? "" : text, length);
  LocalFree(text);
  const std::size_t lineBreak = result.rfind("\r\n");
  return lineBreak == std::string::npos ? result : result.erase(lineBreak, 2);
}

std::string Hex(DWORD code) {
  char text[20];
  std::snprintf(text, sizeof text, "%lx", code);
  return text;
}

TEST(QsErrorMessage, HasTheSystemTextOfEveryCode) {
  int known = 0;
  for (DWORD code = 0; code < 16000; ++code) {
    const std::string expected = SystemText(code);
    ASSERT_EQ(QsErrorMessage(static_cast<int>(code)), expected.empty() ? Fallback(Hex(code)) : expected) << code;
    known += expected.empty() ? 0 : 1;
  }
  EXPECT_GT(known, 100);
  EXPECT_EQ(QsErrorMessage(static_cast<int>(0x80070005)), SystemText(0x80070005)) << "an HRESULT";
}

TEST(QsErrorMessage, CodesThatTheSystemLeavesOutHaveNoText) {
  for (DWORD code = 0x20000000; code < 0x20000100; ++code) {  // the bit of codes that applications define
    ASSERT_EQ(SystemText(code), "");
    EXPECT_EQ(QsErrorMessage(static_cast<int>(code)), Fallback(Hex(code)));
  }
}

#else

TEST(QsLastError, IsTheSystems) {
  errno = ERANGE;
  EXPECT_EQ(QsGetLastError(), ERANGE);
  QsSetLastError(ENOENT);
  EXPECT_EQ(errno, ENOENT);
}

TEST(QsErrorMessage, HasTheSystemTextOfEveryCode) {
  for (int code = 0; code < 134; ++code) {
    if (code == 41 || code == 58) {
      continue;  // numbers that Linux leaves out
    }
    EXPECT_EQ(QsErrorMessage(code), std::strerror(code)) << code;
  }
}

TEST(QsErrorMessage, CodesThatTheSystemLeavesOutHaveNoText) {
  EXPECT_EQ(QsErrorMessage(41), Fallback("29"));
  EXPECT_EQ(QsErrorMessage(58), Fallback("3a"));
  EXPECT_EQ(QsErrorMessage(134), Fallback("86"));
}

TEST(QsErrorMessage, HasTheTextsOfLookUpsAndSockets) {
  EXPECT_EQ(QsErrorMessage(9001), "DNS server unable to interpret format.");
  EXPECT_EQ(QsErrorMessage(9002), "DNS server failure.");
  EXPECT_EQ(QsErrorMessage(9003), "DNS name does not exist.");
  EXPECT_EQ(QsErrorMessage(9004), "DNS request not supported by name server.");
  EXPECT_EQ(QsErrorMessage(9005), "DNS operation refused.");
  EXPECT_EQ(QsErrorMessage(9006), Fallback("232e"));
  EXPECT_EQ(QsErrorMessage(9501), "No records found for given DNS query.");
  EXPECT_EQ(QsErrorMessage(9502), "Bad DNS packet.");
  EXPECT_EQ(QsErrorMessage(9560), "DNS name contains an invalid character.");
  EXPECT_EQ(QsErrorMessage(10004), "Interrupted system call");
  EXPECT_EQ(QsErrorMessage(10061), "Connection refused");
  EXPECT_EQ(QsErrorMessage(11004), "No host data of that type was found");
  EXPECT_EQ(QsErrorMessage(10005), Fallback("2715"));
}
#endif

TEST(QsErrorMessage, EndsWithoutALineBreak) {
  const std::string text = QsErrorMessage(2);
  ASSERT_FALSE(text.empty());
  EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
  EXPECT_EQ(text.find("unknown"), std::string::npos);
}

TEST(QsErrorMessage, UnknownCodesGiveTheirNumberInLowerCaseHex) {
  EXPECT_EQ(QsErrorMessage(0x1234ABCD), Fallback("1234abcd"));
  EXPECT_EQ(QsErrorMessage(-1), Fallback("ffffffff"));
}

TEST(QsErrorMessage, LeavesTheLastErrorAlone) {
  for (const int code : {2, -1, 0x1234ABCD}) {
    QsSetLastError(77);
    QsErrorMessage(code);
    EXPECT_EQ(QsGetLastError(), 77) << code;
  }
}

}  // namespace
