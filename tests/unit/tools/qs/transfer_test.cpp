#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include <common/platform.h>
#include <common/tempdir.h>

#include "streamos.h"
#include "transfer.h"

namespace {

using qsbase::testing::TempDir;

struct Closer {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, Closer>;

TEST(Urls, FileNames) {
  EXPECT_EQ(qs::UrlFileName("http://h/a/b.txt?x=/y#z"), "b.txt");
  EXPECT_EQ(qs::UrlFileName("http://h/a%20b.txt"), "a b.txt");
  EXPECT_EQ(qs::UrlFileName("http://h/100%zz%4"), "100%zz%4") << "what is no escape stays";
  EXPECT_EQ(qs::UrlFileName("http://h"), "");
  EXPECT_EQ(qs::UrlFileName("http://h/"), "");
  EXPECT_EQ(qs::UrlFileName("http://h?q=/a.txt"), "");
  EXPECT_EQ(qs::UrlFileName("h/a.txt"), "a.txt");
  EXPECT_EQ(qs::UrlFileName("http://h/..%2F..%2Fx"), "../../x") << "still to be made safe";
  EXPECT_EQ(qs::UrlFileName("http://h/a;b.txt"), "a;b.txt");
  EXPECT_EQ(qs::UrlFileName("h/a.txt?from=http://x/y.txt"), "a.txt") << "a scheme stands in front of the query";
  EXPECT_EQ(qs::UrlFileName(""), "");
}

TEST(Urls, PasswordsAreNotShown) {
  EXPECT_EQ(qs::DisplayUrl("http://u:secret@h:1/a"), "http://u:***@h:1/a");
  EXPECT_EQ(qs::DisplayUrl("http://u:a@b@h/"), "http://u:***@h/");
  EXPECT_EQ(qs::DisplayUrl("http://u@h:80/"), "http://u@h:80/");
  EXPECT_EQ(qs::DisplayUrl("http://h:80/a:b@c"), "http://h:80/a:b@c");
  EXPECT_EQ(qs::DisplayUrl("http://h/\x1b[2J"), "http://h/?[2J");
  EXPECT_EQ(qs::DisplayUrl("http://u:a:b;c@h/"), "http://u:***@h/") << "no piece of it";
}

TEST(TemporaryStream, GivesBackWhatWasWritten) {
  const Stream stream(qs::OpenTemporaryStream());
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(qs::SeekToEnd(stream.get()), 0);
  const std::string content("a\n\0\r\n\x1A z", 8);
  ASSERT_EQ(std::fwrite(content.data(), 1, content.size(), stream.get()), content.size());
  EXPECT_EQ(qs::StreamPosition(stream.get()), 8);
  std::rewind(stream.get());
  EXPECT_EQ(qs::StreamPosition(stream.get()), 0);
  char read[9] = {};
  EXPECT_EQ(std::fread(read, 1, sizeof read, stream.get()), content.size()) << "no byte was changed or added";
  EXPECT_EQ(std::string(read, 8), content);
  EXPECT_EQ(qs::SeekToEnd(stream.get()), 8);
}

TEST(TemporaryStream, TwoAreTwo) {
  const Stream first(qs::OpenTemporaryStream());
  const Stream second(qs::OpenTemporaryStream());
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  std::fputs("first", first.get());
  EXPECT_EQ(qs::SeekToEnd(first.get()), 5);
  EXPECT_EQ(qs::SeekToEnd(second.get()), 0);
}

// A variable of this process, as it was before once this is gone.
class Variable {
 public:
  Variable(const char* name, const std::string& value) : _name(name) {
    if (const char* const before = std::getenv(name)) {
      _before = before;
    }
    qsbase::testing::SetEnvironment(name, value);
  }
  ~Variable() {
    if (_before) {
      qsbase::testing::SetEnvironment(_name, *_before);
    } else {
      qsbase::testing::RemoveEnvironment(_name);
    }
  }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  const char* _name;
  std::optional<std::string> _before;
};

TEST(TemporaryStream, LeavesNothingBehind) {
  const TempDir dir;
  const Variable where("TMP", dir.Path());  // on Windows
  Stream stream(qs::OpenTemporaryStream());
  ASSERT_NE(stream, nullptr);
  std::fputs("text", stream.get());
  stream.reset();
  EXPECT_EQ(qsbase::testing::NamesIn(dir.Path()).size(), 0U);
}

TEST(Streams, PositionsAbove2And4GiB) {
  const TempDir dir;
  const std::string path = dir.Write("a", "");
  const std::int64_t sizes[] = {0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0x100000000, 0x140000003};
  for (const std::int64_t size : sizes) {
    qsbase::testing::Resize(path, size);
    const Stream stream(std::fopen(path.c_str(), "a+b"));
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(qs::SeekToEnd(stream.get()), size);
    EXPECT_EQ(qs::StreamPosition(stream.get()), size);
    std::rewind(stream.get());
    EXPECT_EQ(qs::StreamPosition(stream.get()), 0);
  }
}

}  // namespace
