// What a fetch does when memory is short. A program of its own: it replaces the operator new. Not for Windows, where
// strings take their memory inside the C++ runtime's DLL, past that operator.

#include <QSbase/net/http.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <common/memorylimit.h>
#include <common/tempdir.h>

#include "fetch.h"
#include "origin.h"

namespace {

using qsbase::testing::TempDir;

class FetchTest : public testing::Test {
 protected:
  void SetUp() override { InitQsInetHttp(1); }
  void TearDown() override { InitQsInetHttp(2); }

  // Fetches a long file and a short one with so little memory.
  std::vector<qs::Outcome> Fetch(const std::string& content, std::size_t limit) const {
    qs::Origin origin({{"big.bin", _dir.Write("big.bin", content)}, {"small.txt", _dir.Write("small.txt", "small")}});
    EXPECT_EQ(origin.Start(), "");
    qs::FetchOptions options;
    options.quiet = true;
    options.outputFolder = _dir / "out";
    options.urls = {origin.UrlOf("big.bin"), origin.UrlOf("small.txt")};
    std::string problem;
    qsbase::testing::largestAllocation = limit;  // of this thread: the origin has all it wants
    std::vector<qs::Outcome> outcomes = qs::FetchAll(options, problem);
    qsbase::testing::largestAllocation = qsbase::testing::kNoLimit;
    EXPECT_EQ(problem, "");
    return outcomes;
  }

  void ExpectStoredAsTheyCame(const std::vector<qs::Outcome>& outcomes, const std::string& content) const {
    ASSERT_EQ(outcomes.size(), 2U);
    EXPECT_EQ(outcomes[0].verdict, "good (not looked into)");
    EXPECT_EQ(outcomes[1].verdict, "good");
    EXPECT_EQ(TempDir::Read(_dir / "out/big.bin"), content);
    EXPECT_EQ(TempDir::Read(_dir / "out/small.txt"), "small");
  }

  const TempDir _dir;
};

constexpr std::size_t kLong = 3000000;

TEST_F(FetchTest, NoMemoryForTheContent) {
  const std::string content(kLong, '\x80');
  ExpectStoredAsTheyCame(Fetch(content, kLong / 2), content);
}

TEST_F(FetchTest, NoMemoryForWhatIsInTheContent) {
  std::string content = "220 1 <a@b> article\r\n";  // the answer of a news server: its lines are copied
  while (content.size() < kLong) {
    content += "line\r\n";
  }
  ExpectStoredAsTheyCame(Fetch(content, content.size() + 1000), content);
}

}  // namespace
