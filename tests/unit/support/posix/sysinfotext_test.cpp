#include <QSbase/support/posix/sysinfotext.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

using namespace std::string_literals;

namespace {

using qsbase::detail::MemoryReport;
using qsbase::detail::Mount;
using qsbase::detail::Processors;
using qsbase::detail::ReadCpuDescription;
using qsbase::detail::ReadMemoryReport;
using qsbase::detail::ReadMounts;
using qsbase::detail::ReadSystemName;
using ::testing::ElementsAre;

TEST(ReadCpuDescription, TellsTheFirst) {
  const Processors processors = ReadCpuDescription(
      "processor\t: 0\nmodel\t\t: 1\nmodel name\t: A Name: 9 of it  \ncpu MHz\t\t: 2445.428\n\n"
      "processor\t: 1\nmodel name\t: Another\ncpu MHz\t\t: 800.000\n");
  EXPECT_EQ(processors.name, "A Name: 9 of it");
  EXPECT_DOUBLE_EQ(processors.mhz, 2445.428);
  EXPECT_EQ(processors.count, 0);
}

TEST(ReadCpuDescription, OfWhatItDoesNotKnowIsNothing) {
  for (const char* const text :
       {"", "\n\n", "model name", "model name:", "processor : 0\nBogoMIPS : 48.00\n", ":", "::"}) {
    const Processors processors = ReadCpuDescription(text);
    EXPECT_EQ(processors.name, "") << text;
    EXPECT_EQ(processors.mhz, 0) << text;
  }
}

TEST(ReadMemoryReport, TellsWhatProgramsCanGet) {
  const MemoryReport report = ReadMemoryReport(
      "MemTotal:       24682416 kB\nMemFree:        19592424 kB\nMemAvailable:   22833432 kB\n"
      "SwapCached:            5 kB\nSwapTotal:       1000000 kB\nSwapFree:         999999 kB\n");
  EXPECT_EQ(report.total, 24682416U);
  EXPECT_EQ(report.free, 22833432U);
  EXPECT_EQ(report.swapTotal, 1000000U);
  EXPECT_EQ(report.swapFree, 999999U);
}

TEST(ReadMemoryReport, OfAnOldKernelTellsWhatNothingUses) { EXPECT_EQ(ReadMemoryReport("MemFree: 12 kB\n").free, 12U); }

TEST(ReadMemoryReport, OfNothingIsZero) {
  for (const char* const text : {"", "MemTotal:\nMemAvailable: much kB", "MemTotal: 99999999999999999999999 kB"}) {
    const MemoryReport report = ReadMemoryReport(text);
    EXPECT_EQ(report.total, 0U);
    EXPECT_EQ(report.free, 0U);
    EXPECT_EQ(report.swapTotal, 0U);
    EXPECT_EQ(report.swapFree, 0U);
  }
}

std::vector<std::string> Described(std::string_view mountinfo) {
  std::vector<std::string> described;
  for (const Mount& mount : ReadMounts(mountinfo)) {
    described.push_back(mount.device + " " + mount.type + " " + mount.mountPoint);
  }
  return described;
}

// The first line is the example of proc(5).
TEST(ReadMounts, TellsDeviceTypeAndPlace) {
  EXPECT_THAT(Described("36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue\n"
                        "37 35 0:44 / /a rw shared:7 master:2 - nfs4 host:/a rw\n"
                        "38 35 8:1 / / rw - ext4 /dev/sda1 rw"),
              ElementsAre("98:0 ext3 /mnt2", "0:44 nfs4 /a", "8:1 ext4 /"));
}

TEST(ReadMounts, UndoesTheEscapes) {
  EXPECT_THAT(Described("1 2 3:4 / /a\\040b\\011c\\012d\\134e\\04 rw - ext4 /dev/x rw\n"),
              ElementsAre("3:4 ext4 /a b\tc\nd\\e\\04"));
}

TEST(ReadMounts, TheLastAtOnePlaceHidesTheOthers) {
  EXPECT_THAT(Described("1 0 0:1 / /a rw - autofs systemd rw\n2 0 0:2 / /b rw - ext4 x rw\n"
                        "3 1 0:3 / /a rw - nfs x rw\n"),
              ElementsAre("0:2 ext4 /b", "0:3 nfs /a"));
}

TEST(ReadMounts, OfManyAtOnePlaceTheLastStaysWhereItStands) {
  EXPECT_THAT(Described("1 0 0:1 / /a rw - x x rw\n2 0 0:2 / /a rw - x x rw\n3 0 0:3 / /b rw - x x rw\n"
                        "4 0 0:4 / /a rw - x x rw\n5 0 0:5 / /c rw - x x rw\n6 0 0:6 / /b rw - x x rw\n"),
              ElementsAre("0:4 x /a", "0:5 x /c", "0:6 x /b"));
}

TEST(ReadMounts, PassesOverLinesThatAreNone) {
  EXPECT_THAT(Described(""), ElementsAre());
  EXPECT_THAT(Described("\n\n1 2 3\n1 2 3:4 / /a rw\n - \n1 - ext4\n"), ElementsAre());
}

TEST(ReadSystemName, TakesTheQuotesOff) {
  const struct {
    const char* text;
    const char* name;
  } rows[] = {
      {"NAME=\"Debian GNU/Linux\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nID=debian\n",
       "Debian GNU/Linux 12 (bookworm)"},
      {"PRETTY_NAME='Single \\ 1'\n", "Single \\ 1"},
      {"PRETTY_NAME=Word\n", "Word"},
      {"PRETTY_NAME=\"A \\\"B\\\" \\$1 \\\\\"\n", "A \"B\" $1 \\"},
      {"#PRETTY_NAME=No\nPRETTY_NAME=Yes=1", "Yes=1"},
      {"PRETTY_NAME=\"", ""},
      {"PRETTY_NAME=", ""},
      {"PRETTY_NAME=\"x\\", "x\\"},
      {"", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ReadSystemName(row.text), row.name) << row.text;
  }
}

}  // namespace
