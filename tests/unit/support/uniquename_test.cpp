#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/support/paths.h>
#include <QSbase/support/uniquename.h>

namespace {

using qsbase::testing::kOnWindows;
using qsbase::testing::TempDir;

class UniqueName : public ::testing::Test {
 protected:
  // What the manager makes of a wanted path.
  static std::string Ask(CUniqueFilenameManager& names, const std::string& wanted, bool remember) {
    std::string result = "from before";
    EXPECT_EQ(names.GetUniquePath(wanted, result, remember), 0);
    return result;
  }

  static std::string AskOnce(const std::string& wanted) {
    std::string result = "from before";
    EXPECT_EQ(CAL_GetUniquePath(wanted, result), 0);
    return result;
  }

  const TempDir dir;
  const std::string base = QsTranslateFilename(dir.Path()) + "\\";
};

TEST_F(UniqueName, AFreePathStaysAndIsNotRemembered) {
  CUniqueFilenameManager names;
  EXPECT_EQ(Ask(names, base + "a.txt", true), base + "a.txt");
  EXPECT_EQ(Ask(names, base + "a.txt", true), base + "a.txt");
  dir.Write("a.txt", "");
  EXPECT_EQ(Ask(names, base + "a.txt", true), base + "a (1).txt");
}

TEST_F(UniqueName, TakesTheFirstFreeCounter) {
  dir.Write("a.txt", "");
  dir.Write("a (1).txt", "");
  dir.Write("a (3).txt", "");
  CUniqueFilenameManager names;
  EXPECT_EQ(Ask(names, base + "a.txt", false), base + "a (2).txt");
  EXPECT_EQ(Ask(names, base + "a.txt", false), base + "a (2).txt");
}

TEST_F(UniqueName, RemembersTheNextCounterPerPath) {
  dir.Write("a.txt", "");
  dir.Write("a (1).txt", "");
  dir.Write("b.txt", "");
  CUniqueFilenameManager names;
  EXPECT_EQ(Ask(names, base + "a.txt", true), base + "a (2).txt");
  EXPECT_EQ(Ask(names, base + "a.txt", true), base + "a (3).txt");
  EXPECT_EQ(Ask(names, base + "b.txt", true), base + "b (1).txt");
  EXPECT_EQ(Ask(names, base + "a.txt", false), base + "a (2).txt");
  EXPECT_EQ(Ask(names, base + "a.txt", true), base + "a (4).txt");
  // The same file in another spelling is another path.
  EXPECT_EQ(Ask(names, dir / "a.txt", true), dir / "a (2).txt");
}

TEST_F(UniqueName, RememberedCountersSkipTakenNames) {
  dir.Write("a.txt", "");
  CUniqueFilenameManager names(1, " (", ")");
  EXPECT_EQ(Ask(names, base + "a.txt", true), base + "a (1).txt");
  dir.Write("a (2).txt", "");
  dir.Write("a (3).txt", "");
  EXPECT_EQ(Ask(names, base + "a.txt", true), base + "a (4).txt");
}

TEST_F(UniqueName, ResetProbesFromOneAgain) {
  dir.Write("a.txt", "");
  CUniqueFilenameManager names;
  for (int i = 1; i <= 3; ++i) {
    EXPECT_EQ(Ask(names, base + "a.txt", true), base + "a (" + std::to_string(i) + ").txt");
  }
  EXPECT_EQ(names.Reset(), 0);
  EXPECT_EQ(Ask(names, base + "a.txt", true), base + "a (1).txt");
}

TEST_F(UniqueName, PrefixAndSuffixAreFree) {
  dir.Write("a.tar.gz", "");
  CUniqueFilenameManager names(0, "-v", "%s");
  EXPECT_EQ(Ask(names, base + "a.tar.gz", false), base + "a.tar-v1%s.gz");
  CUniqueFilenameManager bare(0, "", "");
  EXPECT_EQ(Ask(bare, base + "a.tar.gz", false), base + "a.tar1.gz");
}

TEST_F(UniqueName, WithoutExtensionTheNameEndsInADot) {
  dir.Write("dir/readme", "");
  CUniqueFilenameManager names;
  EXPECT_EQ(Ask(names, base + "dir", false), base + "dir (1).");
  EXPECT_EQ(Ask(names, base + "dir\\readme", false), base + "dir\\readme (1).");
  EXPECT_EQ(AskOnce(base + "dir"), base + "dir_1.");
}

TEST_F(UniqueName, WindowsTakesATrailingDotForNothing) {
  dir.Write("readme", "");
  dir.Write("readme (1)", "");
  CUniqueFilenameManager names;
  EXPECT_EQ(Ask(names, base + "readme", false), base + (kOnWindows ? "readme (2)." : "readme (1)."));
}

TEST_F(UniqueName, WindowsTellsNoCaseApart) {
  dir.Write("A.txt", "");
  dir.Write("a (1).TXT", "");
  CUniqueFilenameManager names;
  EXPECT_EQ(Ask(names, base + "a.txt", true), base + (kOnWindows ? "a (2).txt" : "a.txt"));
  EXPECT_EQ(Ask(names, base + "A.txt", true), base + (kOnWindows ? "A (2).txt" : "A (1).txt"));
}

TEST_F(UniqueName, ADotInADirectoryIsNoExtension) {
  dir.Write("v1.2/readme", "");
  dir.Write("v1.2/.cfg", "");
  dir.Write("v1.2/x.txt", "");
  CUniqueFilenameManager names;
  EXPECT_EQ(Ask(names, base + "v1.2\\readme", false), base + "v1.2\\readme (1).");
  EXPECT_EQ(Ask(names, dir / "v1.2/readme", false), (dir / "v1.2/readme") + " (1).");
  EXPECT_EQ(Ask(names, dir / "v1.2/x.txt", false), dir / "v1.2/x (1).txt");
  EXPECT_EQ(Ask(names, dir / "v1.2/.cfg", false), dir / "v1.2/ (1).cfg");
  EXPECT_EQ(AskOnce(dir / "v1.2/readme"), (dir / "v1.2/readme") + "_1.");
}

TEST_F(UniqueName, OneShotForm) {
  EXPECT_EQ(AskOnce(base + "log.txt"), base + "log.txt");
  dir.Write("log.txt", "");
  EXPECT_EQ(AskOnce(base + "log.txt"), base + "log_1.txt");
  EXPECT_EQ(AskOnce(base + "log.txt"), base + "log_1.txt");
  dir.Write("log_1.txt", "");
  EXPECT_EQ(AskOnce(base + "log.txt"), base + "log_2.txt");
  EXPECT_EQ(AskOnce(""), "");
}

TEST_F(UniqueName, WantedAndResultMayBeTheSameObject) {
  dir.Write("a.txt", "");
  dir.Write("a (1).txt", "");
  CUniqueFilenameManager names;
  std::string path = base + "a.txt";
  names.GetUniquePath(path, path, true);
  EXPECT_EQ(path, base + "a (2).txt");
  EXPECT_EQ(Ask(names, base + "a.txt", true), base + "a (3).txt");
  path = base + "a.txt";
  CAL_GetUniquePath(path, path);
  EXPECT_EQ(path, base + "a_1.txt");
}

TEST_F(UniqueName, NamesNeedNoEncoding) {
  dir.Write("\xff\xfe.\x80", "");
  CUniqueFilenameManager names;
  EXPECT_EQ(Ask(names, base + "\xff\xfe.\x80", true), base + "\xff\xfe (1).\x80");
}

TEST_F(UniqueName, ThreadsThatShareALockedManagerGetDifferentNames) {
  dir.Write("a.txt", "");
  CUniqueFilenameManager names;
  names.SetFlags(1);
  constexpr int kThreads = 8;
  constexpr int kRequests = 50;
  std::vector<std::vector<std::string>> given(kThreads);
  std::vector<std::thread> threads;
  for (std::vector<std::string>& mine : given) {
    threads.emplace_back([this, &names, &mine] {
      for (int i = 0; i < kRequests; ++i) {
        mine.push_back(Ask(names, base + "a.txt", true));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  std::set<std::string> all;
  for (const std::vector<std::string>& mine : given) {
    all.insert(mine.begin(), mine.end());
  }
  EXPECT_EQ(all.size(), static_cast<std::size_t>(kThreads * kRequests));
  EXPECT_EQ(all.count(base + "a (1).txt"), 1U);
  EXPECT_EQ(all.count(base + "a (400).txt"), 1U);
}

// The search itself is open to derived classes: it never gives the wanted path.
class OpenManager : public CUniqueFilenameManager {
 public:
  using CUniqueFilenameManager::GetUniquePathInternal;
};

TEST_F(UniqueName, TheSearchDoesNotLookAtTheWantedPath) {
  static_assert(std::has_virtual_destructor_v<CUniqueFilenameManager>);
  OpenManager names;
  std::string result;
  EXPECT_EQ(names.GetUniquePathInternal(base + "free.txt", result, false), 0);
  EXPECT_EQ(result, base + "free (1).txt");
  const std::string longName(3000, 'x');
  EXPECT_EQ(names.GetUniquePathInternal(longName + ".txt", result, false), 0);
  EXPECT_EQ(result, longName + " (1).txt");
}

}  // namespace
