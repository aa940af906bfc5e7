#include <QSbase/allocationerror.h>
#include <QSbase/errors.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <string>
#include <thread>
#include <type_traits>

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
  QsSetLastError(5);
  std::thread([] {
    QsSetLastError(7);
    EXPECT_EQ(QsGetLastError(), 7);
  }).join();
  EXPECT_EQ(QsGetLastError(), 5);
}

#ifndef _WIN32
TEST(QsLastError, IsErrno) {
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
