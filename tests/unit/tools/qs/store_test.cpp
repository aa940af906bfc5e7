#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include <common/tempdir.h>

#include "store.h"
#include "streamos.h"

namespace {

using qs::SafeFileName;
using qs::Store;
using qsbase::testing::TempDir;

TEST(SafeFileName, NeverLeavesTheFolder) {
  for (const std::string name : {"../../etc/passwd", "/etc/passwd", "..\\..\\windows\\system.ini", "C:\\x\\y", "a/..",
                                 "..", ".", "", " ", "/", "a/b/", "...", "a\nb", "\t", "con", "a:b", "\x01\x02"}) {
    const std::string safe = SafeFileName(name);
    EXPECT_FALSE(safe.empty()) << name;
    EXPECT_EQ(safe.find_first_of("/\\:\n\t\x01"), std::string::npos) << name;
    EXPECT_NE(safe, ".") << name;
    EXPECT_NE(safe, "..") << name;
  }
  EXPECT_EQ(SafeFileName("../../etc/passwd"), "passwd");
  EXPECT_EQ(SafeFileName(".."), "unnamed");
  EXPECT_EQ(SafeFileName(""), "unnamed");
  EXPECT_EQ(SafeFileName(std::string("a.txt\0.exe", 10)), "a.txt");
  EXPECT_EQ(SafeFileName("Hafen Übersicht.pdf"), "Hafen Übersicht.pdf");
  EXPECT_EQ(SafeFileName("a\x1B[31mb\xC2\x9B"
                         "31mc\x7F.txt"),
            "a_[31mb_31mc_.txt")
      << "a terminal would obey";
}

TEST(SafeFileName, SuitsEverySystem) {
  EXPECT_EQ(SafeFileName("a<b>\"c|d?e*f:g.bin"), "a_b__c_d_e_f_g.bin");
  EXPECT_EQ(SafeFileName("AUX.tar.gz"), "AUX_.tar.gz");
  EXPECT_EQ(SafeFileName("com1"), "com1_");
  EXPECT_EQ(SafeFileName("end."), "end._");
}

TEST(SafeFileName, CutsLongNamesButKeepsTheExtension) {
  const std::string safe = SafeFileName(std::string(1000, 'a') + ".tar.gz");
  EXPECT_LT(safe.size(), 240U);
  EXPECT_EQ(safe.substr(safe.size() - 4), "a.gz");
  std::string umlauts;
  for (int i = 0; i < 200; ++i) {
    umlauts += "ü";
  }
  for (const char* head : {"", "a"}) {
    const std::string cut = SafeFileName(head + umlauts + ".txt");
    EXPECT_EQ((cut.size() - std::string(head).size() - 4) % 2, 0U) << "no character is cut in half";
  }
  EXPECT_LT(SafeFileName("a." + std::string(1000, 'x')).size(), 240U) << "an extension may be too long itself";
}

TEST(Store, TakesFreeNamesAndReplacesNothing) {
  const TempDir dir;
  dir.Write("a.txt", "old");
  dir.Write("readme", "old");
  Store store(dir.Path());
  ASSERT_EQ(store.Open(), "");
  std::string name;
  ASSERT_EQ(store.Save("a.txt", "new", name), "");
  EXPECT_EQ(name, "a (1).txt");
  ASSERT_EQ(store.Save("a.txt", "newer", name), "");
  EXPECT_EQ(name, "a (2).txt");
  ASSERT_EQ(store.Save("readme", "new", name), "");
  EXPECT_EQ(name, "readme (1)") << "no dot at the end";
  ASSERT_EQ(store.Save("readme", "newer", name), "");
  EXPECT_EQ(name, "readme (2)");
  ASSERT_EQ(store.Save("../b.txt", std::string("\0\r\n", 3), name), "");
  EXPECT_EQ(name, "b.txt");
  EXPECT_EQ(TempDir::Read(dir / "a.txt"), "old");
  EXPECT_EQ(TempDir::Read(dir / "a (1).txt"), "new");
  EXPECT_EQ(TempDir::Read(dir / "readme"), "old");
  EXPECT_EQ(TempDir::Read(dir / "readme (2)"), "newer");
  EXPECT_EQ(TempDir::Read(dir / "b.txt"), std::string("\0\r\n", 3));
}

TEST(Store, MakesItsFolder) {
  const TempDir dir;
  Store store(dir / "x/y");
  ASSERT_EQ(store.Open(), "");
  EXPECT_TRUE(std::filesystem::is_directory(dir / "x/y"));
  dir.Write("file", "");
  EXPECT_NE(Store(dir / "file").Open(), "");
}

TEST(Store, SavesLongestNames) {
  const TempDir dir;
  Store store(dir.Path());
  std::string name;
  for (int i = 0; i < 12; ++i) {
    ASSERT_EQ(store.Save(std::string(300, 'n') + ".bin", "x", name), "") << i;
  }
}

// Where a path may have 259 characters only, the names have to give way.
TEST(Store, SavesLongNamesInDeepFolders) {
  const TempDir dir;
  Store store(dir / std::string(150, 'd'));
  ASSERT_EQ(store.Open(), "");
  std::string name;
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(store.Save(std::string(300, 'n') + ".bin", "x", name), "") << i;
    EXPECT_EQ(name.substr(name.size() - 4), ".bin");
    EXPECT_EQ(TempDir::Read(dir / (std::string(150, 'd') + "/" + name)), "x");
  }
  EXPECT_EQ(store.SafeName("short.txt"), "short.txt");
}

TEST(Store, ReportsAFolderTooDeepForAnyName) {
  const TempDir dir;
  std::string folder = dir.Path();
  while (folder.size() < 5000) {
    folder += "/" + std::string(200, 'd');
  }
  Store store(folder);
  EXPECT_NE(store.Open(), "");
  std::string name;
  EXPECT_NE(store.Save("a.txt", "x", name), "");
}

// MD5 of 200000 "x" by md5sum.
TEST(Store, SavesAStream) {
  const TempDir dir;
  Store store(dir.Path());
  std::FILE* stream = qs::OpenTemporaryStream();
  ASSERT_NE(stream, nullptr);
  const std::string content(200000, 'x');
  ASSERT_EQ(std::fwrite(content.data(), 1, content.size(), stream), content.size());
  std::string name;
  std::string md5;
  std::uint64_t size = 0;
  for (const char* expected : {"big.bin", "big (1).bin"}) {
    ASSERT_EQ(store.SaveStream("big.bin", stream, name, md5, size), "");
    EXPECT_EQ(name, expected);
    EXPECT_EQ(size, content.size());
    EXPECT_EQ(md5, "4b98146705d4b0b98b758a78ff6fb73f");
    EXPECT_EQ(TempDir::Read(dir / expected), content);
  }
  std::fclose(stream);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path()), {}), 2) << "no temporary file is left";
}

}  // namespace
