#include <QSbase/support/win32/windowsname.h>

#include <gtest/gtest.h>

namespace {

using qsbase::detail::WindowsName;

TEST(WindowsName, IsMadeOfProductReleaseAndVersion) {
  EXPECT_EQ(WindowsName("Windows 10 Pro", "22H2", {10, 0, 19045}), "Windows 10 Pro 22H2 (10.0.19045)");
  EXPECT_EQ(WindowsName("Microsoft Windows 7", "", {6, 1, 7601}), "Microsoft Windows 7 (6.1.7601)");
  EXPECT_EQ(WindowsName("Windows Server 2022 Standard", "21H2", {10, 0, 20348}),
            "Windows Server 2022 Standard 21H2 (10.0.20348)");
}

TEST(WindowsName, TheBuildTellsWindows11) {
  EXPECT_EQ(WindowsName("Windows 10 Home", "21H2", {10, 0, 21999}), "Windows 10 Home 21H2 (10.0.21999)");
  EXPECT_EQ(WindowsName("Windows 10 Home", "21H2", {10, 0, 22000}), "Windows 11 Home 21H2 (10.0.22000)");
  EXPECT_EQ(WindowsName("Windows Server 2025", "24H2", {10, 0, 26100}), "Windows Server 2025 24H2 (10.0.26100)");
}

TEST(WindowsName, IsWindowsWithoutAProduct) { EXPECT_EQ(WindowsName("", "", {5, 1, 2600}), "Windows (5.1.2600)"); }

}  // namespace
