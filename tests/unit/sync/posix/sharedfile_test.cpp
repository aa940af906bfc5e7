// Files that stand for names of the machine: their paths, how they are made and what is refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/sync/posix/sharedfile.h>

namespace {

// The kernel or the file system is to lack files without a name.
bool refuseLinkAt = false;

}  // namespace

extern "C" int linkat(int oldDir, const char* oldPath, int newDir, const char* newPath, int flags) noexcept {
  if (refuseLinkAt) {
    errno = ENOENT;
    return -1;
  }
  return static_cast<int>(syscall(SYS_linkat, oldDir, oldPath, newDir, newPath, flags));
}

namespace {

using qsbase::detail::IsStillAt;
using qsbase::detail::kMachineFileMode;
using qsbase::detail::kUserFileMode;
using qsbase::detail::OpenExistingSharedFile;
using qsbase::detail::OpenSharedFile;
using qsbase::detail::SharedFileModes;
using qsbase::detail::SharedFilePath;
using qsbase::detail::SharedFileScope;
using qsbase::testing::NamesIn;
using qsbase::testing::RemoveEnvironment;
using qsbase::testing::SetEnvironment;
using qsbase::testing::TempDir;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uid_t kNobody = 65534;

// A descriptor for the length of a block.
class Opened {
 public:
  explicit Opened(int descriptor) : _descriptor(descriptor) {}
  ~Opened() {
    if (_descriptor != -1) {
      close(_descriptor);
    }
  }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;

  bool IsOpen() const { return _descriptor != -1; }
  int Get() const { return _descriptor; }

 private:
  int _descriptor;
};

mode_t ModeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

// With another umask for the length of a block.
class ScopedMask {
 public:
  explicit ScopedMask(mode_t mask) : _before(umask(mask)) {}
  ~ScopedMask() { umask(_before); }
  ScopedMask(const ScopedMask&) = delete;
  ScopedMask& operator=(const ScopedMask&) = delete;

 private:
  mode_t _before;
};

// The error with which the file is refused; 0 when it is opened.
int RefusalOf(const std::string& path, unsigned mode) {
  errno = 0;
  const Opened file(OpenSharedFile(path, mode));
  return file.IsOpen() ? 0 : errno;
}

TEST(SharedFilePath, LiesWhereEverybodyMakesFilesAndTmpdirDoesNotReach) {
  SetEnvironment("TMPDIR", "/nowhere");
  const std::string path = SharedFilePath("mutex", "Name-1_a.b");
  RemoveEnvironment("TMPDIR");
  EXPECT_THAT(path, AnyOf("/dev/shm/qsbase-mutex-Name-1_a.b", "/tmp/qsbase-mutex-Name-1_a.b"));
  const mode_t folder = ModeOf(path.substr(0, path.rfind('/')));
  EXPECT_EQ(folder, mode_t{01777});
}

TEST(SharedFilePath, NamesMayHaveAnyBytes) {
  EXPECT_THAT(SharedFilePath("mutex", "Global\\A/B c\xE4"), ::testing::EndsWith("/qsbase-mutex-Global%5CA%2FB%20c%E4"));
  EXPECT_THAT(SharedFilePath("mutex", ""), ::testing::EndsWith("/qsbase-mutex-"));
  EXPECT_THAT(SharedFilePath("mutex", std::string("\0~%\n", 4)), ::testing::EndsWith("/qsbase-mutex-%00%7E%25%0A"));
  EXPECT_THAT(SharedFilePath("mutex", ".."), ::testing::EndsWith("/qsbase-mutex-.."));
}

TEST(SharedFilePath, DiffersWithEveryByteAndLength) {
  std::set<std::string> paths;
  std::size_t count = 0;
  for (int byte = 0; byte < 256; ++byte) {
    for (const std::size_t length : {1u, 2u, 60u, 61u, 180u, 181u, 1000u}) {
      paths.insert(SharedFilePath("mutex", std::string(length, static_cast<char>(byte))));
      ++count;
    }
  }
  EXPECT_EQ(paths.size(), count);
}

TEST(SharedFilePath, OfLongNamesCanBeMade) {
  for (const std::size_t length : {60u, 61u, 180u, 181u, 1000000u}) {
    for (const char byte : {'a', '\xFF'}) {
      const std::string path = SharedFilePath("test", std::string(length, byte), SharedFileScope::User);
      const Opened file(OpenSharedFile(path, kUserFileMode));
      EXPECT_TRUE(file.IsOpen()) << path;
      EXPECT_EQ(unlink(path.c_str()), 0);
    }
  }
}

TEST(SharedFilePath, KindsAndUsersAreApart) {
  const std::string user = std::to_string(geteuid());
  EXPECT_THAT(SharedFilePath("event", "x", SharedFileScope::User), ::testing::EndsWith("/qsbase-" + user + "-event-x"));
  EXPECT_NE(SharedFilePath("event", "x"), SharedFilePath("mutex", "x"));
  EXPECT_NE(SharedFilePath("event", "x", SharedFileScope::User), SharedFilePath("event", "x"));
}

// With files that get their name last, and with those that get it first.
class OpenSharedFileTest : public ::testing::TestWithParam<bool> {
 protected:
  OpenSharedFileTest() { refuseLinkAt = GetParam(); }
  ~OpenSharedFileTest() override { refuseLinkAt = false; }

  TempDir _dir;
  const std::string _path = _dir / "name";
};

INSTANTIATE_TEST_SUITE_P(Creation, OpenSharedFileTest, ::testing::Bool(),
                         [](const auto& chosen) { return std::string(chosen.param ? "NameFirst" : "NameLast"); });

TEST_P(OpenSharedFileTest, MakesAnEmptyFileWithTheModeWhateverTheUmask) {
  const ScopedMask mask(077);
  const Opened everyones(OpenSharedFile(_path, kMachineFileMode));
  const Opened own(OpenSharedFile(_dir / "own", kUserFileMode));
  ASSERT_TRUE(everyones.IsOpen());
  ASSERT_TRUE(own.IsOpen());
  EXPECT_EQ(ModeOf(_path), mode_t{0666});
  EXPECT_EQ(ModeOf(_dir / "own"), mode_t{0600});
  EXPECT_THAT(TempDir::Read(_path), IsEmpty());
  EXPECT_EQ(NamesIn(_dir.Path()).size(), 2u);
}

TEST_P(OpenSharedFileTest, OpensWhatIsThereForReadingAndWriting) {
  const Opened first(OpenSharedFile(_path, kMachineFileMode));
  ASSERT_EQ(write(first.Get(), "abc", 3), 3);
  const Opened second(OpenSharedFile(_path, kMachineFileMode));
  char bytes[4] = {};
  EXPECT_EQ(read(second.Get(), bytes, 3), 3);
  EXPECT_STREQ(bytes, "abc");
  EXPECT_EQ(write(second.Get(), "d", 1), 1);
  EXPECT_EQ(TempDir::Read(_path), "abcd");
}

TEST_P(OpenSharedFileTest, IsNotInheritedByPrograms) {
  const Opened made(OpenSharedFile(_path, kMachineFileMode));
  const Opened opened(OpenSharedFile(_path, kMachineFileMode));
  EXPECT_NE(fcntl(made.Get(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(fcntl(opened.Get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_P(OpenSharedFileTest, SettlesARaceOverTheCreation) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 500;
  for (int round = 0; round < kRounds; ++round) {
    std::atomic<int> arrived = 0;
    ino_t inodes[kThreads] = {};
    std::vector<std::thread> threads;
    for (ino_t& inode : inodes) {
      threads.emplace_back([this, &arrived, &inode] {
        ++arrived;
        while (arrived < kThreads) {
          std::this_thread::yield();
        }
        const Opened file(OpenSharedFile(_path, kMachineFileMode));
        struct stat status = {};
        if (fstat(file.Get(), &status) == 0) {
          inode = status.st_ino;
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    ASSERT_NE(inodes[0], ino_t{0});
    ASSERT_THAT(inodes, ElementsAre(inodes[0], inodes[0], inodes[0], inodes[0]));
    ASSERT_EQ(unlink(_path.c_str()), 0);
  }
  EXPECT_THAT(NamesIn(_dir.Path()), IsEmpty());
}

TEST_P(OpenSharedFileTest, ReportsWhyNothingIsMade) {
  EXPECT_EQ(RefusalOf(_dir / "missing/name", kMachineFileMode), ENOENT);
  EXPECT_EQ(RefusalOf(_dir / std::string(300, 'x'), kMachineFileMode), ENAMETOOLONG);
}

TEST(OpenSharedFile, FollowsNoLink) {
  const TempDir dir;
  const std::string path = dir / "name";
  ASSERT_EQ(symlink((dir / "target").c_str(), path.c_str()), 0);
  EXPECT_EQ(RefusalOf(path, kMachineFileMode), ELOOP);
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("name"));
  dir.Write("target", "x");
  EXPECT_EQ(RefusalOf(path, kMachineFileMode), ELOOP);
  EXPECT_EQ(ModeOf(dir / "target") & 022u, 0u);
}

TEST(OpenSharedFile, TakesNoFileWithASecondName) {
  const TempDir dir;
  dir.Write("other", "x");
  ASSERT_EQ(link((dir / "other").c_str(), (dir / "name").c_str()), 0);
  EXPECT_EQ(RefusalOf(dir / "name", kMachineFileMode), EMLINK);
}

TEST(OpenSharedFile, TakesOnlyRegularFiles) {
  const TempDir dir;
  ASSERT_EQ(mkdir((dir / "folder").c_str(), 0777), 0);
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0666), 0);
  EXPECT_EQ(RefusalOf(dir / "folder", kMachineFileMode), EISDIR);
  EXPECT_EQ(RefusalOf(dir / "pipe", kMachineFileMode), EINVAL);
  EXPECT_EQ(RefusalOf("/dev/null", kMachineFileMode), EINVAL);
}

TEST(OpenSharedFile, MendsThePermissionsThatAKilledMakerLeft) {
  const TempDir dir;
  const std::string path = dir.Write("name", "");
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  EXPECT_EQ(RefusalOf(path, kMachineFileMode), 0);
  EXPECT_EQ(ModeOf(path), mode_t{0666});
}

TEST(OpenSharedFile, LeavesPermissionsAsTheyAreWhenAsked) {
  const TempDir dir;
  const std::string path = dir.Write("name", "");
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  const Opened file(OpenSharedFile(path, kMachineFileMode, SharedFileModes::AsTheyAre));
  EXPECT_TRUE(file.IsOpen());
  EXPECT_EQ(ModeOf(path), mode_t{0600});
}

TEST(OpenExistingSharedFile, MakesNone) {
  const TempDir dir;
  EXPECT_EQ(OpenExistingSharedFile(dir / "name", kMachineFileMode), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(NamesIn(dir.Path()), IsEmpty());
  const std::string path = dir.Write("name", "");
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  const Opened file(OpenExistingSharedFile(path, kMachineFileMode));
  EXPECT_TRUE(file.IsOpen());
  EXPECT_EQ(ModeOf(path), mode_t{0666});
}

TEST(OpenSharedFile, OfTheUserAloneIsNotTakenFromAnother) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give a file to somebody else";
  }
  const TempDir dir;
  const std::string path = dir.Write("name", "");
  ASSERT_EQ(chmod(path.c_str(), 0666), 0);
  ASSERT_EQ(chown(path.c_str(), kNobody, kNobody), 0);
  EXPECT_EQ(RefusalOf(path, kUserFileMode), EACCES);
  EXPECT_EQ(RefusalOf(path, kMachineFileMode), 0);
}

// What the child is refused, seen by its exit code.
template <class Action>
int AsNobody(Action action) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(setgid(kNobody) == 0 && setuid(kNobody) == 0 ? action() : 255);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(OpenSharedFile, AnotherUserOpensWhatIsEveryones) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can become somebody else";
  }
  const ScopedMask mask(077);
  const std::string path = SharedFilePath("test", "everyones-" + std::to_string(getpid()));
  const std::string own = SharedFilePath("test", "own-" + std::to_string(getpid()));
  const Opened file(OpenSharedFile(path, kMachineFileMode));
  const Opened ownFile(OpenSharedFile(own, kUserFileMode));
  EXPECT_EQ(AsNobody([&] { return RefusalOf(path, kMachineFileMode); }), 0);
  EXPECT_EQ(AsNobody([&] { return RefusalOf(own, kUserFileMode); }), EACCES);
  EXPECT_EQ(AsNobody([&] { return unlink(path.c_str()) == 0 ? 0 : errno; }), EPERM);
  EXPECT_EQ(unlink(path.c_str()), 0);
  EXPECT_EQ(unlink(own.c_str()), 0);
}

TEST(IsStillAt, TellsTheFileFromItsSuccessor) {
  const TempDir dir;
  const std::string path = dir / "name";
  const Opened file(OpenSharedFile(path, kMachineFileMode));
  EXPECT_TRUE(IsStillAt(file.Get(), path));
  ASSERT_EQ(unlink(path.c_str()), 0);
  EXPECT_FALSE(IsStillAt(file.Get(), path));
  const Opened successor(OpenSharedFile(path, kMachineFileMode));
  EXPECT_FALSE(IsStillAt(file.Get(), path));
  EXPECT_TRUE(IsStillAt(successor.Get(), path));
  EXPECT_FALSE(IsStillAt(-1, path));
}

}  // namespace
