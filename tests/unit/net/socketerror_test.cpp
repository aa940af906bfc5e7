#include <QSbase/errors.h>
#include <QSbase/net/socketerror.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <string>

namespace {

using qsbase::detail::LastSocketError;
using qsbase::detail::SocketErrorFrom;
using qsbase::detail::SocketErrorText;

const std::map<int, std::string> kTexts = {
    {0, "No error"},
    {10004, "Interrupted system call"},
    {10009, "Bad file number"},
    {10013, "Permission denied"},
    {10014, "Bad address"},
    {10022, "Invalid argument"},
    {10024, "Too many open sockets"},
    {10035, "Operation would block"},
    {10036, "Operation now in progress"},
    {10037, "Operation already in progress"},
    {10038, "Socket operation on non-socket"},
    {10039, "Destination address required"},
    {10040, "Message too long"},
    {10041, "Protocol wrong type for socket"},
    {10042, "Bad protocol option"},
    {10043, "Protocol not supported"},
    {10044, "Socket type not supported"},
    {10045, "Operation not supported on socket"},
    {10046, "Protocol family not supported"},
    {10047, "Address family not supported"},
    {10048, "Address already in use"},
    {10049, "Can't assign requested address"},
    {10050, "Network is down"},
    {10051, "Network is unreachable"},
    {10052, "Net connection reset"},
    {10053, "Software caused connection abort"},
    {10054, "Connection reset by peer"},
    {10055, "No buffer space available"},
    {10056, "Socket is already connected"},
    {10057, "Socket is not connected"},
    {10058, "Can't send after socket shutdown"},
    {10059, "Too many references, can't splice"},
    {10060, "Connection timed out"},
    {10061, "Connection refused"},
    {10062, "Too many levels of symbolic links"},
    {10063, "File name too long"},
    {10064, "Host is down"},
    {10065, "No route to host"},
    {10066, "Directory not empty"},
    {10067, "Too many processes"},
    {10068, "Too many users"},
    {10069, "Disc quota exceeded"},
    {10070, "Stale NFS file handle"},
    {10071, "Too many levels of remote in path"},
    {10091, "Network system is unavailable"},
    {10092, "Winsock version out of range"},
    {10093, "WSAStartup not yet called"},
    {10101, "Graceful shutdown in progress"},
    {11001, "Host not found"},
    {11004, "No host data of that type was found"},
};

TEST(SocketErrorText, HasTheTextsOfTheTableAndNoOthers) {
  ASSERT_EQ(kTexts.size(), 50U);
  for (int code = -1; code <= 12000; ++code) {
    const auto found = kTexts.find(code);
    EXPECT_EQ(SocketErrorText(code), found == kTexts.end() ? std::string() : found->second) << code;
  }
}

TEST(LastSocketError, IsTheNumberOfTheLastErrorAndLeavesThat) {
#ifdef _WIN32
  constexpr int kRefused = 10061;
#else
  constexpr int kRefused = ECONNREFUSED;
#endif
  QsSetLastError(kRefused);
  EXPECT_EQ(LastSocketError(), 10061);
  EXPECT_EQ(QsGetLastError(), kRefused);
  EXPECT_EQ(SocketErrorFrom(kRefused), 10061);
}

#ifndef _WIN32  // Winsock gives its own numbers

TEST(SocketErrno, TakesErrnoToTheNumberOfTheSameMeaning) {
  const std::map<int, int> numbers = {{0, 0},
                                      {EINTR, 10004},
                                      {EBADF, 10009},
                                      {EACCES, 10013},
                                      {EFAULT, 10014},
                                      {EINVAL, 10022},
                                      {EMFILE, 10024},
                                      {EAGAIN, 10035},
                                      {EINPROGRESS, 10036},
                                      {ENOTSOCK, 10038},
                                      {EADDRINUSE, 10048},
                                      {EADDRNOTAVAIL, 10049},
                                      {ENETUNREACH, 10051},
                                      {ECONNABORTED, 10053},
                                      {ECONNRESET, 10054},
                                      {EPIPE, 10054},
                                      {ENOBUFS, 10055},
                                      {ENOTCONN, 10057},
                                      {ETIMEDOUT, 10060},
                                      {ECONNREFUSED, 10061},
                                      {EHOSTUNREACH, 10065}};
  for (const auto& [error, number] : numbers) {
    EXPECT_EQ(SocketErrorFrom(error), number) << "errno " << error;
  }
}

TEST(SocketErrno, KeepsWhatWinsockHasNoNumberFor) {
  EXPECT_EQ(SocketErrorFrom(EIO), EIO);
  EXPECT_STREQ(SocketErrorText(SocketErrorFrom(EIO)), "");
}

// Every number that a system call of this system may cause has a text; what a start or a look-up alone causes is left.
TEST(SocketErrno, ReachesTheWholeTable) {
  std::map<int, std::string> left = kTexts;
  for (int error = 0; error < 200; ++error) {
    left.erase(SocketErrorFrom(error));
  }
  for (const int other : {10067, 10091, 10092, 10093, 10101, 11001, 11004}) {
    EXPECT_EQ(left.erase(other), 1U) << other;
  }
  EXPECT_TRUE(left.empty()) << left.begin()->first;
}

#endif

}  // namespace
