// The child processes that other tests rely on.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <common/platform.h>

namespace {

using qsbase::testing::ChildTask;
using qsbase::testing::ChildTest;
using qsbase::testing::HearParent;
using qsbase::testing::RemoveEnvironment;
using qsbase::testing::SetEnvironment;
using qsbase::testing::TellParent;

constexpr int kKilled = 99;

TEST(ChildTests, TalkWithTheirParent) {
  if (ChildTask() == "echo") {
    for (std::string line = HearParent(); !line.empty(); line = HearParent()) {
      TellParent(line + "!");
    }
    return;
  }
  EXPECT_EQ(ChildTask(), "");
  ChildTest child("ChildTests.TalkWithTheirParent", "echo");
  EXPECT_EQ(ChildTask(), "");
  child.Tell("one");
  child.Tell("two");
  EXPECT_EQ(child.Hear(), "one!");
  EXPECT_EQ(child.Hear(), "two!");
  EXPECT_TRUE(child.IsRunning());
  child.Tell("");
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_FALSE(child.IsRunning());
  EXPECT_EQ(child.Hear(), "");
  child.Tell("nobody");
}

TEST(ChildTests, HaveTheEnvironment) {
  if (ChildTask() == "environment") {
    TellParent(std::getenv("QSBASE_SOMETHING"));
    return;
  }
  SetEnvironment("QSBASE_SOMETHING", "a value");
  ChildTest child("ChildTests.HaveTheEnvironment", "environment");
  RemoveEnvironment("QSBASE_SOMETHING");
  EXPECT_EQ(child.Hear(), "a value");
}

TEST(ChildTests, TellTheirExitCode) {
  if (ChildTask() == "code") {
    std::_Exit(7);
  }
  if (ChildTask() == "failure") {
    GTEST_FAIL() << "as it is to";
  }
  EXPECT_EQ(ChildTest("ChildTests.TellTheirExitCode", "code").Wait(), 7);
  EXPECT_EQ(ChildTest("ChildTests.TellTheirExitCode", "failure").Wait(), 1);
}

TEST(ChildTests, EndWhenTheyAreKilled) {
  if (ChildTask() == "wait") {
    TellParent("waiting");
    HearParent();
    return;
  }
  ChildTest child("ChildTests.EndWhenTheyAreKilled", "wait");
  ASSERT_EQ(child.Hear(), "waiting");
  EXPECT_NE(child.Id(), 0);
  child.Kill();
  EXPECT_FALSE(child.IsRunning());
  EXPECT_EQ(child.Wait(), kKilled);
  EXPECT_EQ(child.Hear(), "");
}

TEST(ChildTests, OfOneParentAreApart) {
  if (ChildTask() == "number") {
    TellParent(HearParent());
    return;
  }
  std::vector<std::unique_ptr<ChildTest>> children;
  for (int i = 0; i < 5; ++i) {
    children.push_back(std::make_unique<ChildTest>("ChildTests.OfOneParentAreApart", "number"));
  }
  children[1]->Kill();
  children[3].reset();
  for (const int i : {4, 2, 0}) {
    children[static_cast<std::size_t>(i)]->Tell(std::to_string(i));
    EXPECT_EQ(children[static_cast<std::size_t>(i)]->Hear(), std::to_string(i));
  }
}

}  // namespace
