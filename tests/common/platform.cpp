#include <common/platform.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <io.h>
#include <windows.h>
#include <winioctl.h>
#else
#include <csignal>
#include <map>

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace qsbase::testing {

namespace {

void Check(bool done, const char* what, const std::string& path) {
  if (!done) {
#ifdef _WIN32
    const int error = static_cast<int>(GetLastError());
#else
    const int error = errno;
#endif
    throw std::runtime_error(std::string(what) + " " + path + ": error " + std::to_string(error));
  }
}

// The environment of a child test: its task, and where it talks with its parent.
constexpr const char* kTask = "QSBASE_TEST_TASK";
constexpr const char* kTell = "QSBASE_TEST_TELL";
constexpr const char* kHear = "QSBASE_TEST_HEAR";

#ifdef _WIN32
using LineEnd = void*;
#else
using LineEnd = int;
#endif

bool ReadByte(LineEnd end, char& byte);

std::string ReadLine(LineEnd end) {
  std::string line;
  char byte = 0;
  while (ReadByte(end, byte) && byte != '\n') {
    line += byte;
  }
  return line;
}

}  // namespace

std::string ChildTask() {
  const char* const task = std::getenv(kTask);
  return task == nullptr ? "" : task;
}

bool ReadOnlyRefusesWriting(const std::string& untakenPath) {
  std::ofstream(untakenPath) << "x";
  SetReadOnly(untakenPath, true);
  const bool refused = !std::ofstream(untakenPath, std::ios::app);
  SetReadOnly(untakenPath, false);
  Check(std::remove(untakenPath.c_str()) == 0, "remove", untakenPath);
  return refused;
}

#ifdef _WIN32

namespace {

constexpr std::int64_t kTick = 100;  // nanoseconds
constexpr std::int64_t kEpochTicks = 116444736000000000;

class Handle {
 public:
  explicit Handle(HANDLE handle) : _handle(handle) {}
  ~Handle() {
    if (_handle != INVALID_HANDLE_VALUE) {
      CloseHandle(_handle);
    }
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  HANDLE Get() const { return _handle; }

 private:
  HANDLE _handle;
};

HANDLE Open(const std::string& path, DWORD access) {
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  constexpr DWORD kFlags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;
  const HANDLE handle = CreateFileA(path.c_str(), access, kShareAll, nullptr, OPEN_EXISTING, kFlags, nullptr);
  Check(handle != INVALID_HANDLE_VALUE, "open", path);
  return handle;
}

std::int64_t ToNanoseconds(const FILETIME& time) {
  ULARGE_INTEGER ticks;
  ticks.LowPart = time.dwLowDateTime;
  ticks.HighPart = time.dwHighDateTime;
  return (static_cast<std::int64_t>(ticks.QuadPart) - kEpochTicks) * kTick;
}

FILETIME ToFileTime(std::int64_t nanoseconds) {
  ULARGE_INTEGER ticks;
  ticks.QuadPart = static_cast<ULONGLONG>(nanoseconds / kTick + kEpochTicks);
  FILETIME time;
  time.dwLowDateTime = ticks.LowPart;
  time.dwHighDateTime = ticks.HighPart;
  return time;
}

void MoveTo(HANDLE file, std::int64_t position, const std::string& path) {
  LARGE_INTEGER distance;
  distance.QuadPart = position;
  Check(SetFilePointerEx(file, distance, nullptr, FILE_BEGIN) != 0, "seek in", path);
}

// Without it NTFS writes zeros over gigabytes; who cannot (Wine, whose files have holes anyway) says no.
void MakeSparse(HANDLE file) {
  DWORD returned = 0;
  DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
}

bool MakeAnyLink(const std::string& target, const std::string& link, DWORD flags) {
  constexpr DWORD kUnprivileged = 2;  // where the developer mode is on
  const bool made = CreateSymbolicLinkA(link.c_str(), target.c_str(), flags | kUnprivileged) != 0;
  return made && GetFileAttributesA(link.c_str()) != INVALID_FILE_ATTRIBUTES;  // Wine says yes and makes none
}

// The path as Wine's host has it; a relative one stays.
std::string HostPath(const std::string& path) {
  using Convert = char*(__cdecl*)(const wchar_t*);
  const FARPROC found = GetProcAddress(GetModuleHandleA("kernel32.dll"), "wine_get_unix_file_name");
  if (found == nullptr || path.find(':') == std::string::npos) {
    return path;
  }
  std::vector<wchar_t> wide(path.size() + 1);
  MultiByteToWideChar(CP_ACP, 0, path.c_str(), -1, wide.data(), static_cast<int>(wide.size()));
  char* const converted = reinterpret_cast<Convert>(reinterpret_cast<void*>(found))(wide.data());
  const std::string result = converted == nullptr ? "" : converted;
  HeapFree(GetProcessHeap(), 0, converted);
  return result;
}

// Starts a program of Wine's host, which gives nothing to wait for.
bool StartOnHost(const std::string& program, std::string command) {
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (CreateProcessA(("Z:\\bin\\" + program).c_str(), command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                     &startup, &process) == 0) {
    return false;
  }
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return true;
}

// What TempDir leaves of folders with such links: Wine does not remove them.
class FoldersWithHostLinks {
 public:
  static void Add(const std::string& link) {
    static FoldersWithHostLinks folders;
    const std::size_t folder = link.find("/qsbase-test-");
    Check(folder != std::string::npos, "link outside of a test's folder:", link);
    folders._command.append(" \"").append(link, 0, link.find('/', folder + 1)).append("\"");
  }
  ~FoldersWithHostLinks() { StartOnHost("rm", _command); }
  FoldersWithHostLinks(const FoldersWithHostLinks&) = delete;
  FoldersWithHostLinks& operator=(const FoldersWithHostLinks&) = delete;

 private:
  FoldersWithHostLinks() = default;

  std::string _command = "rm -rf";
};

// Wine makes no links, but shows those of its host that lead to directories: as reparse points.
bool MakeHostLink(const std::string& target, const std::string& link) {
  constexpr int kAttempts = 1000;
  const std::string hostLink = HostPath(link);
  FoldersWithHostLinks::Add(hostLink);
  std::string command = "ln -s \"";
  command.append(HostPath(target)).append("\" \"").append(hostLink).append("\"");
  bool made = false;
  for (int i = 0; i < kAttempts && !made && (i > 0 || StartOnHost("ln", command)); ++i) {
    const DWORD attributes = GetFileAttributesA(link.c_str());
    made = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    Sleep(made ? 0 : 5);
  }
  return made;
}

}  // namespace

bool IsWine() { return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr; }

void SetEnvironment(const std::string& name, const std::string& value) {
  Check(_putenv_s(name.c_str(), value.c_str()) == 0, "set", name);  // this process's and the C runtime's
  _tzset();
}

void RemoveEnvironment(const std::string& name) { SetEnvironment(name, ""); }

void SetReadOnly(const std::string& path, bool readOnly) {
  DWORD attributes = GetFileAttributesA(path.c_str());
  Check(attributes != INVALID_FILE_ATTRIBUTES, "look at", path);
  attributes &= ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
  attributes |= readOnly ? FILE_ATTRIBUTE_READONLY : 0;
  Check(SetFileAttributesA(path.c_str(), attributes) != 0, "set the attributes of", path);
}

bool IsReadOnly(const std::string& path) {
  const DWORD attributes = GetFileAttributesA(path.c_str());
  Check(attributes != INVALID_FILE_ATTRIBUTES, "look at", path);
  return (attributes & FILE_ATTRIBUTE_READONLY) != 0;
}

FileTimes TimesOf(const std::string& path) {
  const Handle file(Open(path, FILE_READ_ATTRIBUTES));
  FILETIME accessed;
  FILETIME modified;
  Check(GetFileTime(file.Get(), nullptr, &accessed, &modified) != 0, "read the times of", path);
  return {ToNanoseconds(modified), ToNanoseconds(accessed)};
}

void SetTimes(const std::string& path, std::int64_t nanoseconds) {
  const Handle file(Open(path, FILE_WRITE_ATTRIBUTES));
  const FILETIME time = ToFileTime(nanoseconds);
  Check(SetFileTime(file.Get(), nullptr, &time, &time) != 0, "set the times of", path);
}

bool MakeLink(const std::string& target, const std::string& link) { return MakeAnyLink(target, link, 0); }

bool MakeDirectoryLink(const std::string& target, const std::string& link) {
  return IsWine() ? MakeHostLink(target, link) : MakeAnyLink(target, link, SYMBOLIC_LINK_FLAG_DIRECTORY);
}

void Resize(const std::string& path, std::int64_t size) {
  const Handle file(Open(path, GENERIC_WRITE));
  MakeSparse(file.Get());
  MoveTo(file.Get(), size, path);
  Check(SetEndOfFile(file.Get()) != 0, "resize", path);
}

void WriteAt(const std::string& path, std::int64_t position, const std::string& bytes) {
  const Handle file(Open(path, GENERIC_WRITE));
  MakeSparse(file.Get());
  MoveTo(file.Get(), position, path);
  DWORD written = 0;
  const DWORD size = static_cast<DWORD>(bytes.size());
  Check(WriteFile(file.Get(), bytes.data(), size, &written, nullptr) != 0 && written == size, "write to", path);
}

bool IsInherited(std::FILE* stream) {
  DWORD flags = 0;
  const HANDLE handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  Check(GetHandleInformation(handle, &flags) != 0, "look at", "a stream");
  return (flags & HANDLE_FLAG_INHERIT) != 0;
}

std::vector<std::string> NamesIn(const std::string& dir) {
  std::vector<std::string> names;
  WIN32_FIND_DATAA found;
  const HANDLE search = FindFirstFileA((dir + "/*").c_str(), &found);
  Check(search != INVALID_HANDLE_VALUE, "list", dir);
  do {
    const std::string name = found.cFileName;
    if (name != "." && name != "..") {
      names.push_back(name);
    }
  } while (FindNextFileA(search, &found) != 0);
  FindClose(search);
  return names;
}

PipeReader::PipeReader(const std::string& name)
    : _path("\\\\.\\pipe\\" + name + std::to_string(GetCurrentProcessId())), _pipe(INVALID_HANDLE_VALUE) {
  _pipe = CreateNamedPipeA(_path.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 4096, 4096, 0, nullptr);
  Check(_pipe != INVALID_HANDLE_VALUE, "make", _path);
}

PipeReader::~PipeReader() { Close(); }

void PipeReader::Close() {
  if (_pipe != INVALID_HANDLE_VALUE) {
    CloseHandle(_pipe);
    _pipe = INVALID_HANDLE_VALUE;
  }
}

namespace {

constexpr DWORD kKilled = 99;

void WriteLine(HANDLE pipe, const std::string& line) {
  const std::string bytes = line + "\n";
  DWORD written = 0;
  WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

bool ReadByte(HANDLE pipe, char& byte) {
  DWORD count = 0;
  return ReadFile(pipe, &byte, 1, &count, nullptr) != 0 && count == 1;
}

struct Pipe {
  HANDLE reader = INVALID_HANDLE_VALUE;
  HANDLE writer = INVALID_HANDLE_VALUE;
};

Pipe MakePipe() {
  SECURITY_ATTRIBUTES inheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  Pipe pipe;
  Check(CreatePipe(&pipe.reader, &pipe.writer, &inheritable, 0) != 0, "make", "a pipe");
  return pipe;
}

std::string Number(HANDLE handle) { return std::to_string(reinterpret_cast<std::uintptr_t>(handle)); }

HANDLE HandleInEnvironment(const char* name) {
  const char* const number = std::getenv(name);
  return number == nullptr ? INVALID_HANDLE_VALUE : reinterpret_cast<HANDLE>(std::stoull(number));
}

// Starts the command with these two handles and no others.
PROCESS_INFORMATION StartWith(HANDLE (&handles)[2], const std::string& program, std::string command) {
  SIZE_T size = 0;
  InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
  std::vector<char> buffer(size);
  STARTUPINFOEXA startup = {};
  startup.StartupInfo.cb = sizeof startup;
  startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  startup.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(buffer.data());
  Check(InitializeProcThreadAttributeList(startup.lpAttributeList, 1, 0, &size) != 0, "prepare", program);
  Check(UpdateProcThreadAttribute(startup.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles,
                                  sizeof handles, nullptr, nullptr) != 0,
        "prepare", program);
  PROCESS_INFORMATION process = {};
  Check(CreateProcessA(program.c_str(), command.data(), nullptr, nullptr, TRUE, EXTENDED_STARTUPINFO_PRESENT, nullptr,
                       nullptr, &startup.StartupInfo, &process) != 0,
        "start", program);
  DeleteProcThreadAttributeList(startup.lpAttributeList);
  return process;
}

}  // namespace

struct ChildTest::Process {
  HANDLE process = nullptr;
  int id = 0;
  HANDLE hear = INVALID_HANDLE_VALUE;
  HANDLE tell = INVALID_HANDLE_VALUE;
};

ChildTest::ChildTest(const std::string& test, const std::string& task) : _process(std::make_unique<Process>()) {
  char program[MAX_PATH + 1] = {};
  Check(GetModuleFileNameA(nullptr, program, MAX_PATH) != 0, "find", "this program");
  const Pipe toParent = MakePipe();
  const Pipe toChild = MakePipe();
  SetEnvironment(kTask, task);
  SetEnvironment(kTell, Number(toParent.writer));
  SetEnvironment(kHear, Number(toChild.reader));
  std::string command = "\"";
  command.append(program).append("\" --gtest_filter=").append(test);
  HANDLE handles[2] = {toParent.writer, toChild.reader};
  const PROCESS_INFORMATION started = StartWith(handles, program, command);
  for (const char* name : {kTask, kTell, kHear}) {
    RemoveEnvironment(name);
  }
  for (HANDLE unused : {toParent.writer, toChild.reader, started.hThread}) {
    CloseHandle(unused);
  }
  *_process = {started.hProcess, static_cast<int>(started.dwProcessId), toParent.reader, toChild.writer};
}

ChildTest::~ChildTest() {
  Kill();
  for (HANDLE handle : {_process->process, _process->hear, _process->tell}) {
    CloseHandle(handle);
  }
}

std::string ChildTest::Hear() { return ReadLine(_process->hear); }

void ChildTest::Tell(const std::string& line) { WriteLine(_process->tell, line); }

bool ChildTest::IsRunning() { return WaitForSingleObject(_process->process, 0) == WAIT_TIMEOUT; }

int ChildTest::Wait() {
  DWORD code = 0;
  WaitForSingleObject(_process->process, INFINITE);
  Check(GetExitCodeProcess(_process->process, &code) != 0, "ask for the exit code of", "a child");
  return static_cast<int>(code);
}

void ChildTest::Kill() {
  TerminateProcess(_process->process, kKilled);
  WaitForSingleObject(_process->process, INFINITE);
}

void TellParent(const std::string& line) { WriteLine(HandleInEnvironment(kTell), line); }

std::string HearParent() { return ReadLine(HandleInEnvironment(kHear)); }

#else

namespace {

constexpr mode_t kWriteBits = S_IWUSR | S_IWGRP | S_IWOTH;

mode_t ModeOf(const std::string& path) {
  struct stat status;
  Check(stat(path.c_str(), &status) == 0, "look at", path);
  return status.st_mode;
}

std::int64_t ToNanoseconds(const timespec& time) { return std::int64_t{time.tv_sec} * kSecond + time.tv_nsec; }

}  // namespace

bool IsWine() { return false; }

void SetEnvironment(const std::string& name, const std::string& value) {
  Check(setenv(name.c_str(), value.c_str(), 1) == 0, "set", name);
  tzset();
}

void RemoveEnvironment(const std::string& name) {
  Check(unsetenv(name.c_str()) == 0, "unset", name);
  tzset();
}

void SetReadOnly(const std::string& path, bool readOnly) {
  const mode_t mode = ModeOf(path) & 07777;
  const mode_t changed = readOnly ? mode & ~kWriteBits : mode | S_IWUSR;
  Check(chmod(path.c_str(), changed) == 0, "set the mode of", path);
}

bool IsReadOnly(const std::string& path) { return (ModeOf(path) & S_IWUSR) == 0; }

FileTimes TimesOf(const std::string& path) {
  struct stat status;
  Check(lstat(path.c_str(), &status) == 0, "look at", path);
  return {ToNanoseconds(status.st_mtim), ToNanoseconds(status.st_atim)};
}

void SetTimes(const std::string& path, std::int64_t nanoseconds) {
  std::int64_t seconds = nanoseconds / kSecond;
  seconds -= nanoseconds < seconds * kSecond ? 1 : 0;
  const timespec time = {static_cast<time_t>(seconds), static_cast<long>(nanoseconds - seconds * kSecond)};
  const timespec times[2] = {time, time};
  Check(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0, "set the times of", path);
}

bool MakeLink(const std::string& target, const std::string& link) {
  std::filesystem::create_symlink(target, link);
  return true;
}

bool MakeDirectoryLink(const std::string& target, const std::string& link) {
  std::filesystem::create_directory_symlink(target, link);
  return true;
}

void Resize(const std::string& path, std::int64_t size) { Check(truncate(path.c_str(), size) == 0, "resize", path); }

void WriteAt(const std::string& path, std::int64_t position, const std::string& bytes) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  Check(descriptor != -1, "open", path);
  const ssize_t written = pwrite(descriptor, bytes.data(), bytes.size(), position);
  close(descriptor);
  Check(written == static_cast<ssize_t>(bytes.size()), "write to", path);
}

bool IsInherited(std::FILE* stream) { return (fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC) == 0; }

std::vector<std::string> NamesIn(const std::string& dir) {
  std::vector<std::string> names;
  for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator(dir)) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

namespace {

constexpr int kKilled = 99;
constexpr int kSignalled = 128;

bool ReadByte(int socket, char& byte) {
  ssize_t count = -1;
  do {
    count = recv(socket, &byte, 1, 0);
  } while (count == -1 && errno == EINTR);
  return count == 1;
}

void WriteLine(int socket, const std::string& line) {
  const std::string bytes = line + "\n";
  (void)send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);  // fails when the other side is gone
}

int SocketInEnvironment(const char* name) {
  const char* const number = std::getenv(name);
  return number == nullptr ? -1 : std::stoi(number);
}

int ExitCodeOf(int status) {
  if (WIFEXITED(status)) {
    return WEXITSTATUS(status);
  }
  return WTERMSIG(status) == SIGKILL ? kKilled : kSignalled + WTERMSIG(status);
}

// This process's environment without the variables of these names, and with these settings.
std::vector<std::string> EnvironmentWith(const std::map<std::string, std::string>& settings) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (settings.count(text.substr(0, text.find('='))) == 0) {
      result.push_back(text);
    }
  }
  for (const auto& [name, value] : settings) {
    result.push_back(name + "=" + value);
  }
  return result;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) {
    result.push_back(text.data());
  }
  result.push_back(nullptr);
  return result;
}

// Starts this program with one socket besides what it would inherit anyway.
int StartWith(int socket, std::vector<std::string> arguments, std::vector<std::string> environment) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, socket, socket);  // lets it stay open
  pid_t id = 0;
  errno =
      posix_spawn(&id, "/proc/self/exe", &actions, nullptr, Pointers(arguments).data(), Pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  Check(errno == 0, "start", "this program");
  return id;
}

}  // namespace

struct ChildTest::Process {
  int id = 0;
  int socket = -1;
  bool hasEnded = false;
  int exitCode = 0;

  // Takes note of the end, and waits for it with options 0.
  bool HasEnded(int options) {
    int status = 0;
    int waited = 0;
    do {
      waited = hasEnded ? 0 : waitpid(id, &status, options);
    } while (waited == -1 && errno == EINTR);
    if (waited == id) {
      hasEnded = true;
      exitCode = ExitCodeOf(status);
    }
    return hasEnded;
  }
};

ChildTest::ChildTest(const std::string& test, const std::string& task) : _process(std::make_unique<Process>()) {
  int sockets[2];
  Check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) == 0, "make", "a pair of sockets");
  const std::string number = std::to_string(sockets[1]);
  _process->socket = sockets[0];
  _process->id = StartWith(sockets[1], {"child", "--gtest_brief=1", "--gtest_filter=" + test},
                           EnvironmentWith({{kTask, task}, {kTell, number}, {kHear, number}}));
  close(sockets[1]);
}

ChildTest::~ChildTest() {
  Kill();
  close(_process->socket);
}

std::string ChildTest::Hear() { return ReadLine(_process->socket); }

void ChildTest::Tell(const std::string& line) { WriteLine(_process->socket, line); }

bool ChildTest::IsRunning() { return !_process->HasEnded(WNOHANG); }

int ChildTest::Wait() {
  Check(_process->HasEnded(0), "wait for", "a child");
  return _process->exitCode;
}

void ChildTest::Kill() {
  if (IsRunning()) {
    kill(_process->id, SIGKILL);
    _process->HasEnded(0);
  }
}

void TellParent(const std::string& line) { WriteLine(SocketInEnvironment(kTell), line); }

std::string HearParent() { return ReadLine(SocketInEnvironment(kHear)); }

#endif

int ChildTest::Id() const { return _process->id; }

}  // namespace qsbase::testing
