/// \file
/// What tests ask of the operating system behind the library's back, under one name for every target.
///
/// Paths are bytes, in the ANSI code page on Windows; "/" and "\" stand for themselves on Linux. Functions without a
/// result throw std::runtime_error when the system refuses.
#ifndef QSBASE_TESTS_COMMON_PLATFORM_H
#define QSBASE_TESTS_COMMON_PLATFORM_H

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace qsbase::testing {

// The last error where both systems refuse the same thing.
#ifdef _WIN32
inline constexpr bool kOnWindows = true;
inline constexpr int kNoSuchFile = 2;       // ERROR_FILE_NOT_FOUND
inline constexpr int kNoSuchDirectory = 3;  // ERROR_PATH_NOT_FOUND: a folder on the way is missing or is a file
inline constexpr int kBelowAFile = 3;
inline constexpr int kIsADirectory = 5;   // ERROR_ACCESS_DENIED
inline constexpr int kFileIsThere = 80;   // ERROR_FILE_EXISTS, of a creation
inline constexpr int kNameIsTaken = 183;  // ERROR_ALREADY_EXISTS, of a directory or a move
inline constexpr int kNotEmpty = 145;     // ERROR_DIR_NOT_EMPTY
inline constexpr int kSameFile = 32;      // ERROR_SHARING_VIOLATION
#else
inline constexpr bool kOnWindows = false;
inline constexpr int kNoSuchFile = ENOENT;
inline constexpr int kNoSuchDirectory = ENOENT;
inline constexpr int kBelowAFile = ENOTDIR;
inline constexpr int kIsADirectory = EISDIR;
inline constexpr int kFileIsThere = EEXIST;
inline constexpr int kNameIsTaken = EEXIST;
inline constexpr int kNotEmpty = ENOTEMPTY;
inline constexpr int kSameFile = EBUSY;
#endif

/// Whether Wine stands in for Windows.
bool IsWine();

/// Sets a variable of this process, or removes it, and takes over what it says of the time zone.
void SetEnvironment(const std::string& name, const std::string& value);
void RemoveEnvironment(const std::string& name);

/// The read-only attribute; on Linux the write bits.
void SetReadOnly(const std::string& path, bool readOnly);
bool IsReadOnly(const std::string& path);

/// Whether the system refuses this process to write to a read-only file that it makes for a try. On Windows always;
/// root may write under Wine, and on Linux.
bool ReadOnlyRefusesWriting(const std::string& untakenPath);

constexpr const char* kReadOnlyIsWritten = "root may write to read-only files under Wine";

/// In nanoseconds since 1970 (Windows keeps hundreds of them).
struct FileTimes {
  std::int64_t modified = 0;
  std::int64_t accessed = 0;
};

constexpr std::int64_t kSecond = 1000000000;

/// A symbolic link is looked at itself.
FileTimes TimesOf(const std::string& path);

/// Sets both times.
void SetTimes(const std::string& path, std::int64_t nanoseconds);

/// Makes a symbolic link; false where the system or the account makes none (Windows without the privilege). Under Wine
/// those to directories are the host's, which Wine follows and lists as links, but does not remove.
bool MakeLink(const std::string& target, const std::string& link);
bool MakeDirectoryLink(const std::string& target, const std::string& link);

constexpr const char* kNoLinks = "this link cannot be made here: Wine has none, Windows asks for a privilege";

/// The reason to skip a test under Wine that takes a link away.
constexpr const char* kLinksStay = "Wine removes no link";

/// Gives the file this size, with a hole where the file system can.
void Resize(const std::string& path, std::int64_t size);

/// Writes into the file at a position, behind its end too.
void WriteAt(const std::string& path, std::int64_t position, const std::string& bytes);

/// Whether a child process would get the stream too.
bool IsInherited(std::FILE* stream);

/// Every name in the folder but "." and "..".
std::vector<std::string> NamesIn(const std::string& dir);

#ifdef _WIN32
/// One end of a named pipe, which a writer may take the other end of; nobody reads.
class PipeReader {
 public:
  explicit PipeReader(const std::string& name);
  ~PipeReader();
  PipeReader(const PipeReader&) = delete;
  PipeReader& operator=(const PipeReader&) = delete;

  std::string Path() const { return _path; }

  /// What the other end writes from now on fails.
  void Close();

 private:
  std::string _path;
  void* _pipe;
};
#endif

/// A second run of this program: the one test of that name, which does something else when it finds itself the child.
/// Parent and child talk by lines, each of which the other waits for, so that neither needs to sleep.
///
/// \code
/// TEST(Lock, IsSeenByOthers) {
///   if (ChildTask() == "lock") {
///     lock.Enter();
///     TellParent("locked");
///     HearParent();  // until the parent says something or is gone
///     return;        // its expectations make its exit code
///   }
///   ChildTest child("Lock.IsSeenByOthers", "lock");
///   ASSERT_EQ(child.Hear(), "locked");
///   EXPECT_FALSE(lock.Enter());
///   child.Tell("enough");
///   EXPECT_EQ(child.Wait(), 0);
/// }
/// \endcode
class ChildTest {
 public:
  /// Starts it with the environment of this process and \p task for ChildTask(). On Windows its output goes nowhere.
  explicit ChildTest(const std::string& test, const std::string& task = "child");
  /// Ends the process if it still runs.
  ~ChildTest();
  ChildTest(const ChildTest&) = delete;
  ChildTest& operator=(const ChildTest&) = delete;

  /// Waits for the child's next line; empty when it has ended without one.
  std::string Hear();

  /// Sends the child a line, if it still runs.
  void Tell(const std::string& line);

  bool IsRunning();

  /// Waits for the end and gives the exit code; 99 after Kill(), on Linux 128 and the number of another signal.
  int Wait();

  /// Ends the process at once, whatever it does, and waits for that. One that has ended keeps its exit code.
  void Kill();

  /// The operating system's id of the process.
  int Id() const;

 private:
  struct Process;
  std::unique_ptr<Process> _process;
};

/// What a child was started for; empty in the parent.
std::string ChildTask();

/// In a child: sends the parent a line; waits for the parent's next line, empty when the parent is gone.
void TellParent(const std::string& line);
std::string HearParent();

}  // namespace qsbase::testing

#endif
