#include <gtest/gtest.h>

#ifndef _WIN32
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <cstdlib>
#include <string>
#include <vector>

#include <common/logcapture.h>
#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/errors.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>

namespace {

using qsbase::testing::LogCapture;
using qsbase::testing::TempDir;

#ifdef _WIN32
constexpr const char* kTempVariable = "TMP";
#else
constexpr const char* kTempVariable = "TMPDIR";
#endif

// Sets the variable that names the temporary directory for one test and puts it back.
class ScopedTempVariable {
 public:
  ScopedTempVariable() {
    const char* const before = std::getenv(kTempVariable);
    _wasSet = before != nullptr;
    _before = _wasSet ? before : "";
  }
  ~ScopedTempVariable() {
    if (_wasSet) {
      Set(_before);
    } else {
      Unset();
    }
  }
  ScopedTempVariable(const ScopedTempVariable&) = delete;
  ScopedTempVariable& operator=(const ScopedTempVariable&) = delete;

  void Set(const std::string& value) const { qsbase::testing::SetEnvironment(kTempVariable, value); }
  void Unset() const { qsbase::testing::RemoveEnvironment(kTempVariable); }

 private:
  bool _wasSet;
  std::string _before;
};

struct Row {
  std::string input;
  std::string expected;
};

void Check(std::string (*function)(const std::string&), const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    EXPECT_EQ(function(row.input), row.expected) << "for '" << row.input << "'";
  }
}

TEST(Translate, TurnsEverySlash) {
  Check(
      QsTranslateFilename,
      {{"", ""}, {"a", "a"}, {"a/b\\c/", "a\\b\\c\\"}, {"//srv/share", "\\\\srv\\share"}, {"\xff/\x80", "\xff\\\x80"}});
  EXPECT_EQ(QsTranslateFilename(std::string("a\0/b", 4)), std::string("a\0\\b", 4));
}

TEST(Translate, RefusesOverLongNames) {
  LogCapture log;
  const std::string longest(2047, '/');
  EXPECT_EQ(QsTranslateFilename(longest), std::string(2047, '\\'));
  EXPECT_TRUE(log.Messages().empty());
  EXPECT_EQ(QsTranslateFilename(std::string(2048, 'a')), "");
  ASSERT_EQ(log.Messages().size(), 1U);
  EXPECT_EQ(log.Messages()[0].flags, 0x40000000U);
  EXPECT_EQ(log.Messages()[0].text, "QsTranslateFilename: filename of 2048 characters found!");
}

TEST(Translate, OverLongPathsExtractToNothing) {
  const std::string path = "C:\\" + std::string(3000, 'a') + ".txt";
  EXPECT_EQ(ExtractFileDrive(path), "");
  EXPECT_EQ(ExtractFilePath(path), "");
  EXPECT_EQ(ExtractFileName(path), "");
  EXPECT_EQ(ExtractFileExt(path), "");
  EXPECT_EQ(ExtractFileBaseName(path), "");
}

TEST(Extract, Drive) {
  Check(ExtractFileDrive, {{"", ""},
                           {"a", ""},
                           {"C", ""},
                           {"C:", "C:"},
                           {"C:x", "C:"},
                           {"C:\\x", "C:"},
                           {"::", "::"},
                           {"\\dir\\file", ""},
                           {"dir\\file", ""},
                           {"\\\\srv\\share\\dir\\f", "\\\\srv\\share"},
                           {"//srv/share/x", "\\\\srv\\share"},
                           {"\\\\srv\\share", "\\\\srv\\share"},
                           {"\\\\srv\\share\\", "\\\\srv\\share"},
                           {"\\\\srv\\", "\\\\srv"},
                           {"\\\\srv", "\\\\srv"},
                           {"\\\\srv\\\\x", "\\\\srv\\"},
                           {"\\\\x", "\\\\x"},
                           {"\\\\", "\\"},
                           {"//", "\\"},
                           {"/\\srv/share/x", "\\\\srv\\share"},
                           {"\\\\\\", "\\\\"}});
}

TEST(Extract, Path) {
  Check(ExtractFilePath, {{"", ""},
                          {"file", ""},
                          {"C:file", "C:"},
                          {"C:\\a\\b.txt", "C:\\a\\"},
                          {"a/b", "a\\"},
                          {"/a", "\\"},
                          {"dir/", "dir\\"},
                          {"C:\\a:b", "C:\\a:"}});
}

TEST(Extract, Name) {
  Check(ExtractFileName, {{"", ""},
                          {"file", "file"},
                          {"C:file", "file"},
                          {"dir/", ""},
                          {"C:\\a\\b.txt", "b.txt"},
                          {"a/b", "b"},
                          {"\\\xfc\xe4", "\xfc\xe4"}});
}

TEST(Extract, Extension) {
  Check(ExtractFileExt, {{"", ""},
                         {"a", ""},
                         {"C:\\dir.d\\file", ""},
                         {"dir.d/file", ""},
                         {"a.b:c", ""},
                         {"a.tar.gz", ".gz"},
                         {".cfg", ""},
                         {".profile", ""},
                         {"dir\\.cfg", ".cfg"},
                         {"C:.cfg", ".cfg"},
                         {"..", "."},
                         {"a.", "."}});
}

TEST(Extract, BaseName) {
  Check(ExtractFileBaseName, {{"", ""},
                              {"C:\\a\\b.txt", "b"},
                              {"a.tar.gz", "a.tar"},
                              {"dir/.cfg", ".cfg"},
                              {"C:\\dir.d\\file", "file"},
                              {"dir.d/", ""},
                              {"a.", "a"}});
}

TEST(Extract, OlderBaseName) {
  Check(CAL_GetFileBaseName, {{"", ""},
                              {"a", "a"},
                              {"C:\\a\\b.txt", "C:\\a\\b"},
                              {"a.b\\c", "a.b\\c"},
                              {"a.b/c", "a"},
                              {"a.tar.gz", "a.tar"},
                              {".cfg", ""},
                              {"dir\\.cfg", "dir\\"},
                              {"a.\\", "a.\\"}});
  const std::string longName(5000, 'x');
  EXPECT_EQ(CAL_GetFileBaseName(longName + ".y"), longName);
}

TEST(Extract, OlderExtension) {
  Check(CAL_GetFileExtension, {{"", ""},
                               {"a", ""},
                               {"C:\\a\\b.txt", "txt"},
                               {"C:\\v1.2\\readme", ""},
                               {"C:/v1.2/readme", "2/readme"},
                               {".cfg", "cfg"},
                               {"a.", ""},
                               {"a.tar.GZ", "GZ"}});
  EXPECT_EQ(CAL_GetFileExtensionLC("C:\\a\\B.TxT"), "txt");
  EXPECT_EQ(CAL_GetFileExtensionLC("a.\xC4"), "\xE4");
  EXPECT_EQ(CAL_GetFileExtensionLC("a"), "");
}

TEST(Construct, Joins) {
  EXPECT_EQ(ConstructPath("", "name"), "name");
  EXPECT_EQ(ConstructPath("C:\\d", "name"), "C:\\d\\name");
  EXPECT_EQ(ConstructPath("C:\\d\\", "name"), "C:\\d\\name");
  EXPECT_EQ(ConstructPath("d/", "name"), "d/name");
  EXPECT_EQ(ConstructPath("C:\\logs", "app.log", ".bak"), "C:\\logs\\app.bak");
  EXPECT_EQ(ConstructPath("", "x/app.log", "bak"), "appbak");
  EXPECT_EQ(ConstructPath("a", "b", "c.d", ".e"), "a\\b\\c.e");
  EXPECT_EQ(ConstructPath("a", "", "c.d", ".e"), "a\\c.e");
  EXPECT_EQ(ConstructPath("", "b/", "c", ".e"), "b/c.e");
}

TEST(Separator, Append) {
  Check(QsAppendFileslash,
        {{"", ""}, {"a", "a\\"}, {"a\\", "a\\"}, {"a/", "a/"}, {"C:", "C:\\"}, {"\\", "\\"}, {"a\\\\", "a\\\\"}});
  std::string path = "x";
  QsAppendFileslashInPlace(path);
  EXPECT_EQ(path, "x\\");
  QsAppendFileslashInPlace(path);
  EXPECT_EQ(path, "x\\");
}

TEST(Separator, Remove) {
  Check(QsRemoveTerminatingFileslash, {{"", ""},
                                       {"a", "a"},
                                       {"a\\", "a"},
                                       {"a/", "a"},
                                       {"C:\\", "C:"},
                                       {"C:\\\\", "C:\\"},
                                       {"\\", ""},
                                       {"a/\\", "a/"}});
  std::string path = "x\\\\";
  QsRemoveTerminatingFileslashInPlace(path);
  EXPECT_EQ(path, "x\\");
}

TEST(Kind, UncAndAbsolute) {
  EXPECT_TRUE(QsIsUNCPath("\\\\srv"));
  EXPECT_TRUE(QsIsUNCPath("//"));
  EXPECT_FALSE(QsIsUNCPath("\\/srv"));
  EXPECT_FALSE(QsIsUNCPath("/\\srv"));
  EXPECT_FALSE(QsIsUNCPath("\\"));
  EXPECT_FALSE(QsIsUNCPath(""));
  EXPECT_TRUE(QsIsAbsolutePath("C:\\x"));
  EXPECT_TRUE(QsIsAbsolutePath("C:x"));
  EXPECT_TRUE(QsIsAbsolutePath("\\\\srv\\share"));
  EXPECT_TRUE(QsIsAbsolutePath("\\/srv/share"));
  EXPECT_FALSE(QsIsAbsolutePath("\\dir\\file"));
  EXPECT_FALSE(QsIsAbsolutePath("dir\\file"));
  EXPECT_FALSE(QsIsAbsolutePath(""));
}

TEST(CompatibleName, ReplacesEveryForbiddenCharacter) {
  const std::string forbidden = "\"*/:<>?\\|";
  for (int code = 0; code < 256; ++code) {
    const char c = static_cast<char>(code);
    const bool replaced = code < 0x20 || forbidden.find(c) != std::string::npos;
    const std::string name = std::string("x") + c + "y";
    EXPECT_EQ(QsMakeCompatibleFilename(name), replaced ? "x_y" : name) << "byte " << code;
  }
}

TEST(CompatibleName, TrailingBlanksDotsAndDevices) {
  Check(QsMakeCompatibleFilename, {{"", ""},
                                   {"a:b?.", "a_b_._"},
                                   {"Com3.txt", "Com3_.txt"},
                                   {"clock$", "clock$_"},
                                   {"CLOCK$.x", "CLOCK$_.x"},
                                   {"com10", "com10"},
                                   {"com0", "com0"},
                                   {"lpt0.x", "lpt0.x"},
                                   {"LPT1.log", "LPT1_.log"},
                                   {"con.txt", "con_.txt"},
                                   {"nul", "nul_"},
                                   {"con.", "con_._"},
                                   {"con ", "con _"},
                                   {"aux.tar.gz", "aux_.tar.gz"},
                                   {"...", "..._"},
                                   {".", "._"},
                                   {" ", " _"},
                                   {"COM1:", "COM1_"},
                                   {"console", "console"},
                                   {"xcon", "xcon"},
                                   {".con", ".con"},
                                   {"prn", "prn_"}});
  EXPECT_EQ(QsMakeCompatibleFilename(std::string("a\0b", 3)), "a_b");
}

TEST(CompatibleName, ReservesNineOfEachPort) {
  for (const std::string& port : std::vector<std::string>{"com", "LPT", "cOm"}) {
    for (int code = 0; code < 256; ++code) {
      const char c = static_cast<char>(code);
      if (c == '.') {
        continue;
      }
      const std::string name = port + c;
      const bool reserved = c >= '1' && c <= '9';
      EXPECT_EQ(QsMakeCompatibleFilename(name) == name + "_", reserved || c == ' ') << "byte " << code;
    }
  }
}

TEST(CompatibleName, IsANameThatTheSystemTakes) {
  const TempDir dir;
  for (const char* const wanted :
       {"a:b?.", "Com3.txt", "clock$", "con.", "con ", "aux.tar.gz", "...", " ", "COM1:", "nul", "x\"y", "<a>", "a|b",
        "what*", "tab\there", "plain.txt", "\xE4\xF6\xFC.txt"}) {
    const std::string name = QsMakeCompatibleFilename(wanted);
    ASSERT_TRUE(SaveBinaryFile(dir / name, name, false)) << name;
    EXPECT_EQ(qsbase::testing::NamesIn(dir.Path()), std::vector<std::string>{name});
    EXPECT_EQ(LoadBinaryFile(dir / name), name);
    EXPECT_TRUE(QsDeleteFile(dir / name, false));
  }
}

TEST(CompatiblePath, MakesEveryComponentCompatible) {
  Check(QsMakeCompatibleFilepath, {{"", ""},
                                   {"C:\\x\\..\\a|b\\con", "C:\\x\\..\\a_b\\con_"},
                                   {"C:x\\y", "C:\\_\\y"},
                                   {"C:x", "C:\\"},
                                   {"a\\\\b", "a\\_\\b"},
                                   {"..", ".._"},
                                   {".\\x", ".\\x"},
                                   {"x\\.", "x\\._"},
                                   {"//srv/share/x", "\\\\srv\\share\\x"},
                                   {"//srv/share/x/y", "\\\\srv\\share\\x_y"},
                                   {"\\tmp\\a|b", "_\\tmp\\a_b"},
                                   {"/tmp/ab", "_tmp_ab"},
                                   {"a\\", "a\\"},
                                   {"\\", "_\\"},
                                   {"C:", "C:"},
                                   {"C:\\", "C:\\"},
                                   {"\\\\srv\\share", "\\\\srv\\share"},
                                   {"//srv/share", "//srv/share"}});
}

TEST(CompatiblePath, CutsAt259) {
  EXPECT_EQ(QsMakeCompatibleFilepath(std::string(300, 'a')), std::string(259, 'a'));
  EXPECT_EQ(QsMakeCompatibleFilepath(std::string(260, 'a')), std::string(259, 'a'));
  EXPECT_EQ(QsMakeCompatibleFilepath(std::string(259, 'a')), std::string(259, 'a'));
  // Too long for the drive to be seen.
  EXPECT_EQ(QsMakeCompatibleFilepath("C:\\" + std::string(3000, 'a')), "C_\\" + std::string(256, 'a'));
}

TEST(SysTempPath, TakesTheConfiguredDirectory) {
  const TempDir dir;
  const ScopedTempVariable variable;
  variable.Set(dir.Path());
  const std::string path = QsGetSysTempPath();
  EXPECT_EQ(path, QsTranslateFilename(dir.Path()) + "\\");
  EXPECT_EQ(QsGetFSObjectType(path), FSO_DIRECTORY);
  variable.Set(dir.Path() + "/");
  EXPECT_EQ(QsGetSysTempPath(), path);
}

#ifdef _WIN32
TEST(SysTempPath, IsWhereFilesCanBeMade) {
  const std::string path = QsGetSysTempPath();
  EXPECT_EQ(path.back(), '\\');
  EXPECT_TRUE(QsIsAbsolutePath(path));
  EXPECT_EQ(QsGetFSObjectType(path), FSO_DIRECTORY);
  const TempDir dir;
  EXPECT_EQ(QsTranslateFilename(dir.Path()).compare(0, path.size(), path), 0) << path;
}

// The system gives what the variable says, whether it is there or not.
TEST(SysTempPath, NeedNotExist) {
  const TempDir dir;
  const ScopedTempVariable variable;
  variable.Set(dir / "missing");
  EXPECT_EQ(QsGetSysTempPath(), QsTranslateFilename(dir / "missing") + "\\");
  EXPECT_EQ(QsGetFSObjectType(QsGetSysTempPath()), FSO_NOTHING);
}

TEST(SysTempPath, ThrowsWhenItIsTooLong) {
  const ScopedTempVariable variable;
  const auto messageOf = [] {
    try {
      return QsGetSysTempPath();
    } catch (const ExBase& error) {
      return error.GetErrorText();
    }
  };
  const std::string longest = "C:\\" + std::string(255, 'd');
  variable.Set(longest);
  EXPECT_EQ(messageOf(), longest + "\\");
  variable.Set("C:\\" + std::string(300, 'd'));
  EXPECT_EQ(messageOf(), "Could not get temp path");
}
#else
TEST(SysTempPath, FallsBackWhenTheConfiguredOneIsUnusable) {
  const TempDir dir;
  const ScopedTempVariable variable;
  for (const std::string& unusable : {std::string(), dir / "missing", dir.Write("file", "x")}) {
    variable.Set(unusable);
    EXPECT_EQ(QsGetSysTempPath(), "\\tmp\\") << unusable;
  }
  variable.Unset();
  EXPECT_EQ(QsGetSysTempPath(), "\\tmp\\");
}

// A child whose whole file system is one empty folder: 0 right, 1 wrong, 2 it could not be locked in.
int AskForTempPathLockedIn(const std::string& folder) {
  if (chroot(folder.c_str()) != 0 && (unshare(CLONE_NEWUSER) != 0 || chroot(folder.c_str()) != 0)) {
    return 2;
  }
  try {
    QsGetSysTempPath();
  } catch (const ExBase& error) {
    return error.GetErrorText() == "Could not get temp path" ? 0 : 1;
  }
  return 1;
}

TEST(SysTempPath, ThrowsWhenThereIsNone) {
  const TempDir dir;
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    unsetenv("TMPDIR");
    _exit(AskForTempPathLockedIn(dir.Path()));
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 2) {
    GTEST_SKIP() << "this account may not change its root folder";
  }
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

#endif

#ifdef _WIN32
TEST(NativePath, IsThePathItself) {
  EXPECT_EQ(QsNativePath("\\tmp\\a/b"), "\\tmp\\a/b");
  EXPECT_EQ(QsNativePath(""), "");
  EXPECT_EQ(QsNativePath("\xff\\"), "\xff\\");
}
#else
TEST(NativePath, TurnsEveryBackslash) {
  EXPECT_EQ(QsNativePath("\\tmp\\a/b"), "/tmp/a/b");
  EXPECT_EQ(QsNativePath(""), "");
  EXPECT_EQ(QsNativePath("\xff\\"), "\xff/");
}
#endif

}  // namespace
