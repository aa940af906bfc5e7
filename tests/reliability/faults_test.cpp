// Of the faults themselves: what they hit, and that they leave alone what they shall not.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <utility>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>
#else
#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#endif

#include <common/openhandles.h>
#include <common/tempdir.h>

#include <reliability/common/faults.h>
#include <reliability/common/sweep.h>

#include <QSbase/errors.h>

namespace {

using qsbase::testing::Describe;
using qsbase::testing::Fault;
using qsbase::testing::FaultInjection;
using qsbase::testing::FaultKind;
using qsbase::testing::kDenied;
using qsbase::testing::kDeviceError;
using qsbase::testing::kFaultKinds;
using qsbase::testing::kForever;
using qsbase::testing::kNoSpace;
using qsbase::testing::kShort;
using qsbase::testing::kTooManyOpen;
using qsbase::testing::NoFaults;
using qsbase::testing::OpenHandles;
using qsbase::testing::ParseFault;
using qsbase::testing::TempDir;

// ---- the system's calls, under one name for both ----

#ifdef _WIN32
using Handle = HANDLE;
const Handle kNone = INVALID_HANDLE_VALUE;

Handle OpenToRead(const std::string& path) {
  return CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                     nullptr);
}

Handle Create(const std::string& path) {
  return CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                     OPEN_ALWAYS, 0, nullptr);
}

bool CloseFile(Handle file) { return CloseHandle(file) != 0; }

int WriteFile(Handle file, const char* data, unsigned size) {
  DWORD count = 0;
  return ::WriteFile(file, data, size, &count, nullptr) != 0 ? static_cast<int>(count) : -1;
}

bool IsThere(const std::string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }
#else
using Handle = int;
const Handle kNone = -1;

Handle OpenToRead(const std::string& path) { return open(path.c_str(), O_RDONLY | O_CLOEXEC); }
Handle Create(const std::string& path) { return open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666); }
bool CloseFile(Handle file) { return close(file) == 0; }
int WriteFile(Handle file, const char* data, unsigned size) { return static_cast<int>(write(file, data, size)); }
bool IsThere(const std::string& path) { return access(path.c_str(), F_OK) == 0; }
#endif

// Where the calls are made: things that are there and names that are free.
struct Place {
  TempDir dir;
  const std::string file = dir.Write("file", "0123456789");
  const std::string fresh = dir / "fresh";
  const std::string folder = dir / "folder";
  Handle open = kNone;
#ifdef _WIN32
  const std::string all = dir / "*";
  const std::wstring wideFile = std::wstring(file.begin(), file.end());
  const std::wstring wideFresh = std::wstring(fresh.begin(), fresh.end());
  const std::wstring wideFolder = std::wstring(folder.begin(), folder.end());
  const std::wstring wideAll = std::wstring(all.begin(), all.end());
  HANDLE search = INVALID_HANDLE_VALUE;
  HANDLE mapping = nullptr;
#else
  DIR* listing = nullptr;
  int pair[2] = {-1, -1};
#endif

  Place();
  ~Place();
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;
};

// One call, and whether it did what it was asked for.
struct Call {
  const char* name;
  FaultKind kind;
  bool (*make)(Place& place);
};

#ifdef _WIN32
Place::Place() {
  CreateDirectoryA(folder.c_str(), nullptr);
  open = Create(file);
  WIN32_FIND_DATAA found;
  search = FindFirstFileA(all.c_str(), &found);
  mapping = CreateFileMappingA(open, nullptr, PAGE_READONLY, 0, 0, nullptr);
}

Place::~Place() {
  FindClose(search);
  CloseHandle(mapping);
  CloseHandle(open);
}

// Without a count of what is only tidied up.
bool Opened(HANDLE file) {
  const NoFaults spared;
  return file != INVALID_HANDLE_VALUE && CloseHandle(file) != 0;
}

bool Found(HANDLE search) {
  const NoFaults spared;
  return search != INVALID_HANDLE_VALUE && FindClose(search) != 0;
}

bool Mapped(HANDLE mapping) {
  const NoFaults spared;
  return mapping != nullptr && CloseHandle(mapping) != 0;
}

// What is open or mapped can neither be removed nor cut.
void LetGo(Place& place) {
  const NoFaults spared;
  CloseHandle(place.mapping);
  CloseHandle(place.open);
  place.mapping = nullptr;
  place.open = nullptr;
}

void Unmap(Place& place) {
  const NoFaults spared;
  CloseHandle(place.mapping);
  place.mapping = nullptr;
}

template <class Information>
bool SetInformation(HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, Information information) {
  return SetFileInformationByHandle(file, kind, &information, sizeof information) != 0;
}

const Call kCalls[] = {
    {"CreateFileA", FaultKind::Open, [](Place& place) { return Opened(OpenToRead(place.file)); }},
    {"CreateFileW", FaultKind::Open,
     [](Place& place) {
       return Opened(CreateFileW(place.wideFile.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                 OPEN_EXISTING, 0, nullptr));
     }},
    {"FindFirstFileA", FaultKind::Open,
     [](Place& place) {
       WIN32_FIND_DATAA found;
       return Found(FindFirstFileA(place.all.c_str(), &found));
     }},
    {"FindFirstFileW", FaultKind::Open,
     [](Place& place) {
       WIN32_FIND_DATAW found;
       return Found(FindFirstFileW(place.wideAll.c_str(), &found));
     }},
    {"ReadFile", FaultKind::Read,
     [](Place& place) {
       char text[4];
       DWORD count = 0;
       return ReadFile(place.open, text, sizeof text, &count, nullptr) != 0;
     }},
    {"FindNextFileA", FaultKind::Read,
     [](Place& place) {
       WIN32_FIND_DATAA found;
       return FindNextFileA(place.search, &found) != 0;
     }},
    {"FindNextFileW", FaultKind::Read,
     [](Place& place) {
       WIN32_FIND_DATAW found;
       return FindNextFileW(place.search, &found) != 0;
     }},
    {"WriteFile", FaultKind::Write, [](Place& place) { return WriteFile(place.open, "new", 3) == 3; }},
    {"SetEndOfFile", FaultKind::Write,
     [](Place& place) {
       Unmap(place);
       return SetEndOfFile(place.open) != 0;
     }},
    {"SetFileInformationByHandle, size", FaultKind::Write,
     [](Place& place) {
       Unmap(place);
       return SetInformation(place.open, FileEndOfFileInfo, FILE_END_OF_FILE_INFO{});
     }},
    {"CopyFileA", FaultKind::Write,
     [](Place& place) { return CopyFileA(place.file.c_str(), place.fresh.c_str(), TRUE) != 0; }},
    {"CopyFileW", FaultKind::Write,
     [](Place& place) { return CopyFileW(place.wideFile.c_str(), place.wideFresh.c_str(), TRUE) != 0; }},
    {"FlushFileBuffers", FaultKind::Flush, [](Place& place) { return FlushFileBuffers(place.open) != 0; }},
    {"CloseHandle", FaultKind::Close,
     [](Place& place) { return CloseHandle(std::exchange(place.open, nullptr)) != 0; }},
    {"FindClose", FaultKind::Close,
     [](Place& place) { return FindClose(std::exchange(place.search, INVALID_HANDLE_VALUE)) != 0; }},
    {"MoveFileExA", FaultKind::Rename,
     [](Place& place) {
       LetGo(place);
       return MoveFileExA(place.file.c_str(), place.fresh.c_str(), 0) != 0;
     }},
    {"MoveFileExW", FaultKind::Rename,
     [](Place& place) {
       LetGo(place);
       return MoveFileExW(place.wideFile.c_str(), place.wideFresh.c_str(), 0) != 0;
     }},
    {"GetFileAttributesA", FaultKind::Stat, [](Place& place) { return IsThere(place.file); }},
    {"GetFileAttributesW", FaultKind::Stat,
     [](Place& place) { return GetFileAttributesW(place.wideFile.c_str()) != INVALID_FILE_ATTRIBUTES; }},
    {"GetFileAttributesExA", FaultKind::Stat,
     [](Place& place) {
       WIN32_FILE_ATTRIBUTE_DATA data;
       return GetFileAttributesExA(place.file.c_str(), GetFileExInfoStandard, &data) != 0;
     }},
    {"GetFileAttributesExW", FaultKind::Stat,
     [](Place& place) {
       WIN32_FILE_ATTRIBUTE_DATA data;
       return GetFileAttributesExW(place.wideFile.c_str(), GetFileExInfoStandard, &data) != 0;
     }},
    {"GetFileInformationByHandle", FaultKind::Stat,
     [](Place& place) {
       BY_HANDLE_FILE_INFORMATION data;
       return GetFileInformationByHandle(place.open, &data) != 0;
     }},
    {"GetFileInformationByHandleEx", FaultKind::Stat,
     [](Place& place) {
       FILE_BASIC_INFO data;
       return GetFileInformationByHandleEx(place.open, FileBasicInfo, &data, sizeof data) != 0;
     }},
    {"GetFileSizeEx", FaultKind::Stat,
     [](Place& place) {
       LARGE_INTEGER size;
       return GetFileSizeEx(place.open, &size) != 0;
     }},
    {"GetFileTime", FaultKind::Stat,
     [](Place& place) {
       FILETIME time;
       return GetFileTime(place.open, nullptr, nullptr, &time) != 0;
     }},
    {"GetDiskFreeSpaceExA", FaultKind::Stat,
     [](Place& place) {
       ULARGE_INTEGER room;
       return GetDiskFreeSpaceExA(place.folder.c_str(), &room, nullptr, nullptr) != 0;
     }},
    {"DeleteFileA", FaultKind::Unlink,
     [](Place& place) {
       LetGo(place);
       return DeleteFileA(place.file.c_str()) != 0;
     }},
    {"DeleteFileW", FaultKind::Unlink,
     [](Place& place) {
       LetGo(place);
       return DeleteFileW(place.wideFile.c_str()) != 0;
     }},
    {"RemoveDirectoryA", FaultKind::Unlink, [](Place& place) { return RemoveDirectoryA(place.folder.c_str()) != 0; }},
    {"RemoveDirectoryW", FaultKind::Unlink,
     [](Place& place) { return RemoveDirectoryW(place.wideFolder.c_str()) != 0; }},
    {"CreateDirectoryA", FaultKind::MakeFolder,
     [](Place& place) { return CreateDirectoryA(place.fresh.c_str(), nullptr) != 0; }},
    {"CreateDirectoryW", FaultKind::MakeFolder,
     [](Place& place) { return CreateDirectoryW(place.wideFresh.c_str(), nullptr) != 0; }},
    {"SetFileAttributesA", FaultKind::Attribute,
     [](Place& place) { return SetFileAttributesA(place.file.c_str(), FILE_ATTRIBUTE_NORMAL) != 0; }},
    {"SetFileAttributesW", FaultKind::Attribute,
     [](Place& place) { return SetFileAttributesW(place.wideFile.c_str(), FILE_ATTRIBUTE_NORMAL) != 0; }},
    {"SetFileTime", FaultKind::Attribute,
     [](Place& place) {
       const FILETIME time{1, 30000000};
       return SetFileTime(place.open, nullptr, nullptr, &time) != 0;
     }},
    {"SetFileInformationByHandle, attributes", FaultKind::Attribute,
     [](Place& place) { return SetInformation(place.open, FileBasicInfo, FILE_BASIC_INFO{}); }},
    {"CreateFileMappingA", FaultKind::Allocate,
     [](Place& place) { return Mapped(CreateFileMappingA(place.open, nullptr, PAGE_READONLY, 0, 0, nullptr)); }},
    {"MapViewOfFile", FaultKind::Allocate,
     [](Place& place) {
       const void* const view = MapViewOfFile(place.mapping, FILE_MAP_READ, 0, 0, 0);
       return view != nullptr && UnmapViewOfFile(view) != 0;
     }},
};
#else
Place::Place() {
  mkdir(folder.c_str(), 0777);
  open = Create(file);
  listing = opendir(dir.Path().c_str());
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
  EXPECT_EQ(write(pair[1], "1234", 4), 4);
}

Place::~Place() {
  close(open);
  if (listing != nullptr) {
    closedir(listing);
  }
  close(pair[0]);
  close(pair[1]);
}

// Without a count of what is only tidied up.
bool Opened(int descriptor) {
  const NoFaults spared;
  return descriptor != -1 && close(descriptor) == 0;
}

const Call kCalls[] = {
    {"open", FaultKind::Open, [](Place& place) { return Opened(OpenToRead(place.file)); }},
    {"openat", FaultKind::Open,
     [](Place& place) { return Opened(openat(AT_FDCWD, place.fresh.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666)); }},
    {"socket", FaultKind::Open, [](Place&) { return Opened(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)); }},
    {"read", FaultKind::Read,
     [](Place& place) {
       char text[4];
       return read(place.open, text, sizeof text) == 4;
     }},
    {"pread", FaultKind::Read,
     [](Place& place) {
       char text[4];
       return pread(place.open, text, sizeof text, 2) == 4;
     }},
    {"readdir", FaultKind::Read, [](Place& place) { return readdir(place.listing) != nullptr; }},
    {"write", FaultKind::Write, [](Place& place) { return WriteFile(place.open, "new", 3) == 3; }},
    {"pwrite", FaultKind::Write, [](Place& place) { return pwrite(place.open, "new", 3, 2) == 3; }},
    {"ftruncate", FaultKind::Write, [](Place& place) { return ftruncate(place.open, 5) == 0; }},
    {"fsync", FaultKind::Flush, [](Place& place) { return fsync(place.open) == 0; }},
    {"fdatasync", FaultKind::Flush, [](Place& place) { return fdatasync(place.open) == 0; }},
    {"close", FaultKind::Close, [](Place& place) { return close(std::exchange(place.open, -1)) == 0; }},
    {"closedir", FaultKind::Close, [](Place& place) { return closedir(std::exchange(place.listing, nullptr)) == 0; }},
    {"rename", FaultKind::Rename,
     [](Place& place) { return std::rename(place.file.c_str(), place.fresh.c_str()) == 0; }},
    {"renameat2", FaultKind::Rename,
     [](Place& place) { return renameat2(AT_FDCWD, place.file.c_str(), AT_FDCWD, place.fresh.c_str(), 0) == 0; }},
    {"link", FaultKind::Rename, [](Place& place) { return link(place.file.c_str(), place.fresh.c_str()) == 0; }},
    {"stat", FaultKind::Stat,
     [](Place& place) {
       struct stat status;
       return stat(place.file.c_str(), &status) == 0;
     }},
    {"lstat", FaultKind::Stat,
     [](Place& place) {
       struct stat status;
       return lstat(place.file.c_str(), &status) == 0;
     }},
    {"fstat", FaultKind::Stat,
     [](Place& place) {
       struct stat status;
       return fstat(place.open, &status) == 0;
     }},
    {"fstatat", FaultKind::Stat,
     [](Place& place) {
       struct stat status;
       return fstatat(AT_FDCWD, place.file.c_str(), &status, 0) == 0;
     }},
    {"statvfs", FaultKind::Stat,
     [](Place& place) {
       struct statvfs volume;
       return statvfs(place.folder.c_str(), &volume) == 0;
     }},
    {"access", FaultKind::Stat, [](Place& place) { return IsThere(place.file); }},
    {"unlink", FaultKind::Unlink, [](Place& place) { return unlink(place.file.c_str()) == 0; }},
    {"unlinkat", FaultKind::Unlink, [](Place& place) { return unlinkat(AT_FDCWD, place.file.c_str(), 0) == 0; }},
    {"rmdir", FaultKind::Unlink, [](Place& place) { return rmdir(place.folder.c_str()) == 0; }},
    {"mkdir", FaultKind::MakeFolder, [](Place& place) { return mkdir(place.fresh.c_str(), 0777) == 0; }},
    {"chmod", FaultKind::Attribute, [](Place& place) { return chmod(place.file.c_str(), 0600) == 0; }},
    {"fchmod", FaultKind::Attribute, [](Place& place) { return fchmod(place.open, 0600) == 0; }},
    {"utimensat", FaultKind::Attribute,
     [](Place& place) { return utimensat(AT_FDCWD, place.file.c_str(), nullptr, 0) == 0; }},
    {"futimens", FaultKind::Attribute, [](Place& place) { return futimens(place.open, nullptr) == 0; }},
    {"send", FaultKind::Send, [](Place& place) { return send(place.pair[0], "new", 3, MSG_NOSIGNAL) == 3; }},
    {"write to a socket", FaultKind::Send, [](Place& place) { return WriteFile(place.pair[0], "new", 3) == 3; }},
    {"recv", FaultKind::Receive,
     [](Place& place) {
       char text[4];
       return recv(place.pair[0], text, sizeof text, 0) == 4;
     }},
    {"read from a socket", FaultKind::Receive,
     [](Place& place) {
       char text[4];
       return read(place.pair[0], text, sizeof text) == 4;
     }},
};
#endif

// ---- what they hit ----

TEST(Faults, CountEachCallAsOfItsKindAlone) {
  for (const Call& call : kCalls) {
    for (const FaultKind kind : kFaultKinds) {
      SCOPED_TRACE(std::string(call.name) + ", counting " + NameOf(kind));
      Place place;
      const FaultInjection count({.kind = kind, .first = 0});
      const bool done = call.make(place);
      const unsigned calls = count.Calls();
      const NoFaults spared;
      EXPECT_TRUE(done);
      EXPECT_EQ(calls, kind == call.kind ? 1U : 0U);
    }
  }
}

TEST(Faults, LetEachCallFailWithTheirError) {
  for (const Call& call : kCalls) {
    const Fault fault{.kind = call.kind, .error = kDenied};
    SCOPED_TRACE(std::string(call.name) + ", " + Describe(fault));
    Place place;
    bool done = true;
    int error = 0;
    {
      const FaultInjection injection(fault);
      QsSetLastError(0);
      done = call.make(place);
      error = QsGetLastError();
      EXPECT_EQ(injection.Hits(), 1U);
    }
    EXPECT_FALSE(done);
    EXPECT_EQ(error, kDenied);
    EXPECT_EQ(TempDir::Read(place.file), "0123456789") << "it was made all the same";
  }
}

TEST(Faults, HitTheCallThatTheyAreMeantForAndNoOther) {
  const TempDir dir;
  const std::string path = dir.Write("a", "");
  const FaultInjection fault({.kind = FaultKind::Open, .error = kTooManyOpen, .first = 2, .count = 2});
  for (const bool opens : {true, false, false, true}) {
    QsSetLastError(0);
    const Handle file = OpenToRead(path);
    EXPECT_EQ(file != kNone, opens);
    EXPECT_EQ(QsGetLastError(), opens ? 0 : kTooManyOpen);
    if (file != kNone) {
      CloseFile(file);
    }
  }
  EXPECT_EQ(fault.Calls(), 4U);
  EXPECT_EQ(fault.Hits(), 2U);
}

TEST(Faults, HitEveryThreadButWhatIsSpared) {
  const TempDir dir;
  const std::string path = dir.Path();
  const FaultInjection fault({.kind = FaultKind::Stat, .error = kDeviceError, .first = 1, .count = kForever});
  bool other = true;
  std::thread([&] { other = IsThere(path); }).join();
  EXPECT_FALSE(other);
  const NoFaults spared;
  EXPECT_TRUE(IsThere(path));
  EXPECT_EQ(fault.Hits(), 1U);
}

TEST(Faults, AShortTransferMovesHalf) {
  const TempDir dir;
  const Handle file = Create(dir / "a");
  {
    const FaultInjection fault({.kind = FaultKind::Write, .error = kShort});
    EXPECT_EQ(WriteFile(file, "x", 1), 1);  // has no half
    EXPECT_EQ(WriteFile(file, "12345", 5), 2);
    EXPECT_EQ(WriteFile(file, "345", 3), 3);
    EXPECT_EQ(fault.Hits(), 1U);
  }
  CloseFile(file);
  EXPECT_EQ(TempDir::Read(dir / "a"), "x12345");
}

TEST(Faults, AStreamOpensAndReadsAndWritesByTheSameCalls) {
  const TempDir dir;
  const std::string path = dir.Write("a", "0123456789");
  {
    const FaultInjection fault({.kind = FaultKind::Open, .error = kTooManyOpen});
    EXPECT_EQ(std::fopen(path.c_str(), "rb"), nullptr);
    EXPECT_EQ(errno, EMFILE);
  }
  std::FILE* const stream = std::fopen(path.c_str(), "r+b");
  ASSERT_NE(stream, nullptr);
  {
    const FaultInjection fault({.kind = FaultKind::Read, .error = kDeviceError});
    EXPECT_EQ(std::fgetc(stream), EOF);
    EXPECT_NE(std::ferror(stream), 0);
    EXPECT_EQ(fault.Hits(), 1U);
  }
  std::clearerr(stream);
  EXPECT_EQ(std::fgetc(stream), '0');
  EXPECT_EQ(std::fseek(stream, 0, SEEK_SET), 0);
  {
    const FaultInjection fault({.kind = FaultKind::Write, .error = kNoSpace});
    EXPECT_GE(std::fputs("lost", stream), 0);  // in the stream's buffer
    errno = 0;
    EXPECT_EQ(std::fflush(stream), EOF);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_NE(std::ferror(stream), 0);
    EXPECT_EQ(fault.Hits(), 1U);
  }
  std::fclose(stream);
}

#ifndef _WIN32
// ---- streams, which have to be made anew on Linux to come by here ----

TEST(Faults, AStreamWritesByTheSameCalls) {
  const TempDir dir;
  std::FILE* const stream = std::fopen((dir / "a").c_str(), "we");
  ASSERT_NE(stream, nullptr);
  EXPECT_GE(fileno(stream), 0);
  {
    const FaultInjection fault({.kind = FaultKind::Write, .error = ENOSPC});
    EXPECT_GE(std::fputs("lost", stream), 0);  // in the stream's buffer
    errno = 0;
    EXPECT_EQ(std::fflush(stream), EOF);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_NE(std::ferror(stream), 0);
    EXPECT_EQ(fault.Hits(), 1U);
  }
  EXPECT_GE(std::fputs("kept", stream), 0);
  EXPECT_EQ(std::fclose(stream), 0);
  EXPECT_EQ(TempDir::Read(dir / "a"), "kept");  // the C library does not try again what it could not write
}

TEST(Faults, AShortWriteOfAStreamGoesOn) {
  const TempDir dir;
  const std::string content(100000, 'x');
  std::FILE* const stream = std::fopen((dir / "a").c_str(), "we");
  ASSERT_NE(stream, nullptr);
  const FaultInjection fault({.kind = FaultKind::Write, .error = kShort, .first = 1, .count = 5});
  EXPECT_EQ(std::fwrite(content.data(), content.size(), 1, stream), 1U);
  EXPECT_EQ(std::fclose(stream), 0);
  EXPECT_EQ(fault.Hits(), 5U);
  const NoFaults spared;
  EXPECT_EQ(TempDir::Read(dir / "a"), content);
}

TEST(Faults, AStreamReadsAndSeeksAndAppends) {
  const TempDir dir;
  const std::string path = dir.Write("a", "0123456789");
  std::FILE* stream = std::fopen(path.c_str(), "a+e");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(std::fseek(stream, 0, SEEK_END), 0);
  EXPECT_EQ(std::ftell(stream), 10);
  EXPECT_EQ(std::fseek(stream, -3, SEEK_CUR), 0);
  EXPECT_EQ(std::fgetc(stream), '7');
  EXPECT_EQ(std::fseek(stream, 0, SEEK_SET), 0);
  EXPECT_GE(std::fputs("+", stream), 0);
  EXPECT_EQ(std::fclose(stream), 0);
  EXPECT_EQ(TempDir::Read(path), "0123456789+");
  EXPECT_EQ(std::fopen((dir / "none").c_str(), "r"), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST(Faults, AStreamWithoutABufferReadsAtOnce) {
  const TempDir dir;
  std::FILE* const stream = std::fopen(dir.Write("a", "0123456789").c_str(), "re");
  ASSERT_NE(stream, nullptr);
  std::setvbuf(stream, nullptr, _IONBF, 0);
  char text[20];
  {
    const FaultInjection fault({.kind = FaultKind::Read, .error = EIO, .first = 2});
    EXPECT_EQ(std::fread(text, 2, 3, stream), 3U);
    EXPECT_EQ(fault.Calls(), 1U);
    EXPECT_EQ(std::fread(text, 1, 3, stream), 0U);
    EXPECT_NE(std::ferror(stream), 0);
    EXPECT_EQ(std::feof(stream), 0);
  }
  std::clearerr(stream);
  EXPECT_EQ(std::fread(text, 1, sizeof text, stream), 4U);
  EXPECT_EQ(std::string(text, 4), "6789");
  EXPECT_NE(std::feof(stream), 0);
  EXPECT_EQ(std::fclose(stream), 0);
}

#endif

// ---- of each its own ----

TEST(Faults, AFailedCloseHasClosed) {
  const TempDir dir;
  const std::string path = dir.Write("a", "");
  const auto before = OpenHandles();
  {
    const FaultInjection fault({.kind = FaultKind::Close, .error = kDeviceError});
    EXPECT_FALSE(CloseFile(OpenToRead(path)));
    EXPECT_EQ(QsGetLastError(), kDeviceError);
  }
  EXPECT_EQ(OpenHandles(), before);
}

TEST(Faults, AllocationsFailInTheFormThatWasAsked) {
  void* (*volatile allocate)(std::size_t) = &::operator new;  // GCC would take a pair away
  {
    const FaultInjection fault({.kind = FaultKind::Allocate});
    EXPECT_EQ(new (std::nothrow) std::string, nullptr);
  }
  bool threw = false;
  {
    const FaultInjection fault({.kind = FaultKind::Allocate});
    try {
      ::operator delete(allocate(10));
    } catch (const std::bad_alloc&) {
      threw = true;
    }
  }
  EXPECT_TRUE(threw);
}

TEST(Faults, LiveBlocksAreCounted) {
  void* (*volatile allocate)(std::size_t) = &::operator new;
  const long before = qsbase::testing::LiveBlocks();
  void* const block = allocate(10);
  EXPECT_EQ(qsbase::testing::LiveBlocks(), before + 1);
  ::operator delete(block);
  EXPECT_EQ(qsbase::testing::LiveBlocks(), before);
}

TEST(Faults, AreReadFromAText) {
  Fault fault;
  ASSERT_TRUE(ParseFault("write:ENOSPC:3", fault));
  EXPECT_EQ(fault.kind, FaultKind::Write);
  EXPECT_EQ(fault.error, ENOSPC);
  EXPECT_EQ(fault.first, 3U);
  EXPECT_EQ(fault.count, 1U);
  ASSERT_TRUE(ParseFault("receive:short:1:forever", fault));
  EXPECT_EQ(fault.error, kShort);
  EXPECT_EQ(fault.count, kForever);
  ASSERT_TRUE(ParseFault("close:5:2:4", fault));
  EXPECT_EQ(fault.error, 5);
  EXPECT_EQ(fault.count, 4U);
  for (const char* const text : {"", "write", "write:EIO", "wrote:EIO:1", "write:EWHAT:1", "write:EIO:x",
                                 "write:EIO:", "write:EIO:1:", "write:EIO:1:2:3"}) {
    EXPECT_FALSE(ParseFault(text, fault)) << text;
  }
  for (const FaultKind kind : kFaultKinds) {
    EXPECT_TRUE(ParseFault(std::string(NameOf(kind)) + ":EIO:1", fault));
    EXPECT_EQ(fault.kind, kind);
  }
}

}  // namespace
