// The fault points on Linux: functions of the C library under their own names. Linked into a program, or loaded before
// all libraries by LD_PRELOAD, they are what the program and its libraries call.
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <common/sanitized.h>

#include <reliability/common/faultpoint.h>

namespace qsbase::testing {

namespace {

// Not in a block of its own, which would be allocated at a thread's first look.
constinit thread_local long suspended [[gnu::tls_model("initial-exec")]] = 0;

char hitFile[4096] = "";

// The next definition behind this one: that of the C library, or of a sanitizer.
template <typename Function>
Function* Next(Function* /*own*/, const char* name) noexcept {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool IsSocket(int descriptor) {
  struct stat status;
  const int before = errno;
  const bool is = syscall(SYS_newfstatat, descriptor, "", &status, AT_EMPTY_PATH) == 0 && S_ISSOCK(status.st_mode);
  errno = before;
  return is;
}

FaultKind ReadingOf(int descriptor) { return IsSocket(descriptor) ? FaultKind::Receive : FaultKind::Read; }
FaultKind WritingOf(int descriptor) { return IsSocket(descriptor) ? FaultKind::Send : FaultKind::Write; }

// What the program was started with.
const struct FromEnvironment {
  FromEnvironment() {
    const char* const text = std::getenv("QSBASE_FAULT");
    const char* const file = std::getenv("QSBASE_FAULT_HIT");
    if (text == nullptr) {
      return;
    }
    std::strncpy(hitFile, file == nullptr ? "" : file, sizeof hitFile - 1);
    Fault fault;
    if (!ParseFault(text, fault)) {
      std::fprintf(stderr, "QSBASE_FAULT says nothing that is known: %s\n", text);
      std::abort();
    }
    static FaultInjection untilTheEnd(fault);
  }
} fromEnvironment;

}  // namespace

long SuspendedHere() noexcept { return suspended; }

void ChangeSuspended(long change) noexcept { suspended += change; }

void SetError(int error) noexcept { errno = error; }

void TellOfHit() noexcept {
  if (hitFile[0] != '\0') {
    const long file = syscall(SYS_open, hitFile, O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
    syscall(SYS_close, file);
  }
}

void Install() {}

}  // namespace qsbase::testing

using qsbase::testing::Allowed;
using qsbase::testing::CountBlock;
using qsbase::testing::FailsNow;
using qsbase::testing::FaultKind;
using qsbase::testing::kTransferFails;
using qsbase::testing::Next;
using qsbase::testing::ReadingOf;
using qsbase::testing::WritingOf;

#define REAL(function)                                     \
  ([]() noexcept {                                         \
    static const auto next = Next(&::function, #function); \
    return next;                                           \
  }())

namespace {

// After a real success: the call did what it was asked for and says that it did not.
template <typename Result>
Result ClosedWith(Result result, FaultKind kind) {
  return FailsNow(kind) ? -1 : result;
}

mode_t ModeArgument(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

int Open(int directory, const char* path, int flags, mode_t mode) {
  return FailsNow(FaultKind::Open) ? -1 : REAL(openat)(directory, path, flags, mode);
}

// ---- streams: those of the C library would not read and write by the functions here ----

void* ToCookie(int descriptor) { return reinterpret_cast<void*>(std::intptr_t{descriptor}); }
int FromCookie(void* cookie) { return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie)); }

ssize_t ReadCookie(void* cookie, char* buffer, size_t size) { return read(FromCookie(cookie), buffer, size); }

// As the C library's own: what was written short goes on, an error ends it.
ssize_t WriteCookie(void* cookie, const char* data, size_t size) {
  size_t done = 0;
  while (done < size) {
    const ssize_t count = write(FromCookie(cookie), data + done, size - done);
    if (count < 0) {
      break;
    }
    done += static_cast<size_t>(count);
  }
  return static_cast<ssize_t>(done);
}

int SeekCookie(void* cookie, off64_t* position, int origin) {
  const off64_t result = lseek64(FromCookie(cookie), *position, origin);
  if (result != -1) {
    *position = result;
  }
  return result == -1 ? -1 : 0;
}

int CloseCookie(void* cookie) { return close(FromCookie(cookie)); }

// Of the mode's first letter and what stands behind it; -1 for what fopen does not know.
int OpenFlags(const char* mode) {
  const bool both = std::strchr(mode, '+') != nullptr;
  int flags = std::strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0;
  flags |= std::strchr(mode, 'x') != nullptr ? O_EXCL : 0;
  switch (mode[0]) {
    case 'r':
      return flags | (both ? O_RDWR : O_RDONLY);
    case 'w':
      return flags | O_CREAT | O_TRUNC | (both ? O_RDWR : O_WRONLY);
    case 'a':
      return flags | O_CREAT | O_APPEND | (both ? O_RDWR : O_WRONLY);
    default:
      return -1;
  }
}

FILE* StreamOf(int descriptor, const char* mode) {
  const char plain[] = {mode[0], std::strchr(mode, '+') != nullptr ? '+' : '\0', '\0'};
  FILE* const stream = fopencookie(ToCookie(descriptor), plain, {ReadCookie, WriteCookie, SeekCookie, CloseCookie});
  if (stream == nullptr) {
    const int before = errno;
    REAL(close)(descriptor);
    errno = before;
    return nullptr;
  }
  stream->_fileno = descriptor;  // fileno gives it
  return stream;
}

FILE* OpenStream(const char* path, const char* mode) {
  const int flags = OpenFlags(mode);
  if (flags == -1 || std::strstr(mode, ",ccs=") != nullptr) {
    return REAL(fopen)(path, mode);
  }
  const int descriptor = Open(AT_FDCWD, path, flags, 0666);
  return descriptor == -1 ? nullptr : StreamOf(descriptor, mode);
}

ssize_t Read(int descriptor, void* buffer, size_t size) {
  const size_t allowed = Allowed(ReadingOf(descriptor), size);
  return allowed == kTransferFails ? -1 : REAL(read)(descriptor, buffer, allowed);
}

// Nothing that was read is held back, and nothing will be.
bool ReadsUnbuffered(FILE* stream) {
  return __fbufsize(stream) == 1 && stream->_IO_read_ptr == stream->_IO_read_end && fileno(stream) != -1;
}

// What is asked for, at once: the streams above would fetch it byte by byte, which those of the C library do not.
size_t ReadAtOnce(void* buffer, size_t size, FILE* stream) {
  size_t done = 0;
  while (done < size) {
    const ssize_t count = read(fileno(stream), static_cast<char*>(buffer) + done, size - done);
    if (count <= 0) {
      stream->_flags |= count == 0 ? _IO_EOF_SEEN : _IO_ERR_SEEN;
      break;
    }
    done += static_cast<size_t>(count);
  }
  return done;
}

size_t ReadStream(void* buffer, size_t size, size_t count, FILE* stream) {
  const bool atOnce = size != 0 && ReadsUnbuffered(stream);
  return atOnce ? ReadAtOnce(buffer, size * count, stream) / size : REAL(fread)(buffer, size, count, stream);
}

ssize_t ReadAt(int descriptor, void* buffer, size_t size, off_t position) {
  const size_t allowed = Allowed(FaultKind::Read, size);
  return allowed == kTransferFails ? -1 : REAL(pread)(descriptor, buffer, allowed, position);
}

ssize_t WriteAt(int descriptor, const void* data, size_t size, off_t position) {
  const size_t allowed = Allowed(FaultKind::Write, size);
  return allowed == kTransferFails ? -1 : REAL(pwrite)(descriptor, data, allowed, position);
}

ssize_t Receive(int socket, void* buffer, size_t size, int flags) {
  const size_t allowed = Allowed(FaultKind::Receive, size);
  return allowed == kTransferFails ? -1 : REAL(recv)(socket, buffer, allowed, flags);
}

}  // namespace

// Names that the headers do not declare: what a fortified program calls, and the allocator behind its own names.
extern "C" {

int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat_2(int directory, const char* path, int flags);
int __openat64_2(int directory, const char* path, int flags);
ssize_t __read_chk(int descriptor, void* buffer, size_t size, size_t room);
ssize_t __pread_chk(int descriptor, void* buffer, size_t size, off_t position, size_t room);
ssize_t __pread64_chk(int descriptor, void* buffer, size_t size, off64_t position, size_t room);
ssize_t __recv_chk(int socket, void* buffer, size_t size, size_t room, int flags);
size_t __fread_chk(void* buffer, size_t room, size_t size, size_t count, FILE* stream);

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* memory);

// ---- open ----

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = ModeArgument(flags, arguments);
  va_end(arguments);
  return Open(AT_FDCWD, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = ModeArgument(flags, arguments);
  va_end(arguments);
  return Open(AT_FDCWD, path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = ModeArgument(flags, arguments);
  va_end(arguments);
  return Open(directory, path, flags, mode);
}

int openat64(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = ModeArgument(flags, arguments);
  va_end(arguments);
  return Open(directory, path, flags, mode);
}

int __open_2(const char* path, int flags) { return Open(AT_FDCWD, path, flags, 0); }
int __open64_2(const char* path, int flags) { return Open(AT_FDCWD, path, flags, 0); }
int __openat_2(int directory, const char* path, int flags) { return Open(directory, path, flags, 0); }
int __openat64_2(int directory, const char* path, int flags) { return Open(directory, path, flags, 0); }

FILE* fopen(const char* path, const char* mode) { return OpenStream(path, mode); }
FILE* fopen64(const char* path, const char* mode) { return OpenStream(path, mode); }

size_t fread(void* buffer, size_t size, size_t count, FILE* stream) { return ReadStream(buffer, size, count, stream); }

size_t __fread_chk(void* buffer, size_t /*room*/, size_t size, size_t count, FILE* stream) {
  return ReadStream(buffer, size, count, stream);
}

int socket(int domain, int type, int protocol) noexcept {
  return FailsNow(FaultKind::Open) ? -1 : REAL(socket)(domain, type, protocol);
}

int accept(int socket, sockaddr* address, socklen_t* length) {
  return FailsNow(FaultKind::Open) ? -1 : REAL(accept)(socket, address, length);
}

int accept4(int socket, sockaddr* address, socklen_t* length, int flags) {
  return FailsNow(FaultKind::Open) ? -1 : REAL(accept4)(socket, address, length, flags);
}

// ---- read ----

ssize_t read(int descriptor, void* buffer, size_t size) { return Read(descriptor, buffer, size); }

ssize_t __read_chk(int descriptor, void* buffer, size_t size, size_t /*room*/) {
  return Read(descriptor, buffer, size);
}

ssize_t pread(int descriptor, void* buffer, size_t size, off_t position) {
  return ReadAt(descriptor, buffer, size, position);
}

ssize_t pread64(int descriptor, void* buffer, size_t size, off64_t position) {
  return ReadAt(descriptor, buffer, size, position);
}

ssize_t __pread_chk(int descriptor, void* buffer, size_t size, off_t position, size_t /*room*/) {
  return ReadAt(descriptor, buffer, size, position);
}

ssize_t __pread64_chk(int descriptor, void* buffer, size_t size, off64_t position, size_t /*room*/) {
  return ReadAt(descriptor, buffer, size, position);
}

dirent* readdir(DIR* directory) { return FailsNow(FaultKind::Read, false) ? nullptr : REAL(readdir)(directory); }

dirent64* readdir64(DIR* directory) { return FailsNow(FaultKind::Read, false) ? nullptr : REAL(readdir64)(directory); }

// ---- write ----

ssize_t write(int descriptor, const void* data, size_t size) {
  const size_t allowed = Allowed(WritingOf(descriptor), size);
  return allowed == kTransferFails ? -1 : REAL(write)(descriptor, data, allowed);
}

ssize_t pwrite(int descriptor, const void* data, size_t size, off_t position) {
  return WriteAt(descriptor, data, size, position);
}

ssize_t pwrite64(int descriptor, const void* data, size_t size, off64_t position) {
  return WriteAt(descriptor, data, size, position);
}

ssize_t writev(int descriptor, const iovec* pieces, int count) {
  const FaultKind kind = WritingOf(descriptor);
  return FailsNow(kind) ? -1 : REAL(writev)(descriptor, pieces, count);
}

int ftruncate(int descriptor, off_t size) noexcept {
  return FailsNow(FaultKind::Write) ? -1 : REAL(ftruncate)(descriptor, size);
}

int ftruncate64(int descriptor, off64_t size) noexcept {
  return FailsNow(FaultKind::Write) ? -1 : REAL(ftruncate64)(descriptor, size);
}

ssize_t copy_file_range(int in, off64_t* inOffset, int out, off64_t* outOffset, size_t length, unsigned flags) {
  const size_t allowed = Allowed(FaultKind::Write, length);
  return allowed == kTransferFails ? -1 : REAL(copy_file_range)(in, inOffset, out, outOffset, allowed, flags);
}

// ---- flush, close ----

int fsync(int descriptor) { return FailsNow(FaultKind::Flush) ? -1 : REAL(fsync)(descriptor); }

int fdatasync(int descriptor) { return FailsNow(FaultKind::Flush) ? -1 : REAL(fdatasync)(descriptor); }

int close(int descriptor) { return ClosedWith(REAL(close)(descriptor), FaultKind::Close); }

int closedir(DIR* directory) { return ClosedWith(REAL(closedir)(directory), FaultKind::Close); }

// ---- rename, unlink, mkdir ----

int rename(const char* from, const char* to) noexcept {
  return FailsNow(FaultKind::Rename) ? -1 : REAL(rename)(from, to);
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) noexcept {
  return FailsNow(FaultKind::Rename) ? -1 : REAL(renameat)(fromDirectory, from, toDirectory, to);
}

int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to, unsigned flags) noexcept {
  return FailsNow(FaultKind::Rename) ? -1 : REAL(renameat2)(fromDirectory, from, toDirectory, to, flags);
}

int link(const char* from, const char* to) noexcept { return FailsNow(FaultKind::Rename) ? -1 : REAL(link)(from, to); }

int linkat(int fromDirectory, const char* from, int toDirectory, const char* to, int flags) noexcept {
  return FailsNow(FaultKind::Rename) ? -1 : REAL(linkat)(fromDirectory, from, toDirectory, to, flags);
}

int unlink(const char* path) noexcept { return FailsNow(FaultKind::Unlink) ? -1 : REAL(unlink)(path); }

int unlinkat(int directory, const char* path, int flags) noexcept {
  return FailsNow(FaultKind::Unlink) ? -1 : REAL(unlinkat)(directory, path, flags);
}

int rmdir(const char* path) noexcept { return FailsNow(FaultKind::Unlink) ? -1 : REAL(rmdir)(path); }

int mkdir(const char* path, mode_t mode) noexcept {
  return FailsNow(FaultKind::MakeFolder) ? -1 : REAL(mkdir)(path, mode);
}

int mkdirat(int directory, const char* path, mode_t mode) noexcept {
  return FailsNow(FaultKind::MakeFolder) ? -1 : REAL(mkdirat)(directory, path, mode);
}

// ---- status, attributes ----

int stat(const char* path, struct stat* status) noexcept {
  return FailsNow(FaultKind::Stat) ? -1 : REAL(stat)(path, status);
}

int stat64(const char* path, struct stat64* status) noexcept {
  return FailsNow(FaultKind::Stat) ? -1 : REAL(stat64)(path, status);
}

int lstat(const char* path, struct stat* status) noexcept {
  return FailsNow(FaultKind::Stat) ? -1 : REAL(lstat)(path, status);
}

int lstat64(const char* path, struct stat64* status) noexcept {
  return FailsNow(FaultKind::Stat) ? -1 : REAL(lstat64)(path, status);
}

int fstat(int descriptor, struct stat* status) noexcept {
  return FailsNow(FaultKind::Stat) ? -1 : REAL(fstat)(descriptor, status);
}

int fstat64(int descriptor, struct stat64* status) noexcept {
  return FailsNow(FaultKind::Stat) ? -1 : REAL(fstat64)(descriptor, status);
}

int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
  return FailsNow(FaultKind::Stat) ? -1 : REAL(fstatat)(directory, path, status, flags);
}

int fstatat64(int directory, const char* path, struct stat64* status, int flags) noexcept {
  return FailsNow(FaultKind::Stat) ? -1 : REAL(fstatat64)(directory, path, status, flags);
}

int statvfs(const char* path, struct statvfs* volume) noexcept {
  return FailsNow(FaultKind::Stat) ? -1 : REAL(statvfs)(path, volume);
}

int access(const char* path, int mode) noexcept { return FailsNow(FaultKind::Stat) ? -1 : REAL(access)(path, mode); }

int chmod(const char* path, mode_t mode) noexcept {
  return FailsNow(FaultKind::Attribute) ? -1 : REAL(chmod)(path, mode);
}

int fchmod(int descriptor, mode_t mode) noexcept {
  return FailsNow(FaultKind::Attribute) ? -1 : REAL(fchmod)(descriptor, mode);
}

int utimensat(int directory, const char* path, const timespec* times, int flags) noexcept {
  return FailsNow(FaultKind::Attribute) ? -1 : REAL(utimensat)(directory, path, times, flags);
}

int futimens(int descriptor, const timespec* times) noexcept {
  return FailsNow(FaultKind::Attribute) ? -1 : REAL(futimens)(descriptor, times);
}

// ---- sockets ----

int connect(int socket, const sockaddr* address, socklen_t length) {
  return FailsNow(FaultKind::Connect) ? -1 : REAL(connect)(socket, address, length);
}

ssize_t send(int socket, const void* data, size_t size, int flags) {
  const size_t allowed = Allowed(FaultKind::Send, size);
  return allowed == kTransferFails ? -1 : REAL(send)(socket, data, allowed, flags);
}

ssize_t sendto(int socket, const void* data, size_t size, int flags, const sockaddr* address, socklen_t length) {
  return FailsNow(FaultKind::Send) ? -1 : REAL(sendto)(socket, data, size, flags, address, length);
}

ssize_t sendmsg(int socket, const msghdr* message, int flags) {
  return FailsNow(FaultKind::Send) ? -1 : REAL(sendmsg)(socket, message, flags);
}

ssize_t recv(int socket, void* buffer, size_t size, int flags) { return Receive(socket, buffer, size, flags); }

ssize_t __recv_chk(int socket, void* buffer, size_t size, size_t /*room*/, int flags) {
  return Receive(socket, buffer, size, flags);
}

ssize_t recvfrom(int socket, void* buffer, size_t size, int flags, sockaddr* address, socklen_t* length) {
  return FailsNow(FaultKind::Receive) ? -1 : REAL(recvfrom)(socket, buffer, size, flags, address, length);
}

ssize_t recvmsg(int socket, msghdr* message, int flags) {
  return FailsNow(FaultKind::Receive) ? -1 : REAL(recvmsg)(socket, message, flags);
}

// ---- memory ----

#ifndef QSBASE_TESTS_SANITIZED
namespace {

bool NoMemoryNow() {
  if (!FailsNow(FaultKind::Allocate)) {
    return false;
  }
  errno = ENOMEM;
  return true;
}

void* Counted(void* memory) {
  if (memory != nullptr) {
    CountBlock(1);
  }
  return memory;
}

}  // namespace

void* malloc(size_t size) noexcept { return NoMemoryNow() ? nullptr : Counted(__libc_malloc(size)); }

void* calloc(size_t count, size_t size) noexcept {
  return NoMemoryNow() ? nullptr : Counted(__libc_calloc(count, size));
}

void* realloc(void* memory, size_t size) noexcept {
  if (NoMemoryNow()) {
    return nullptr;
  }
  void* const result = __libc_realloc(memory, size);
  if (memory == nullptr && result != nullptr) {
    CountBlock(1);
  } else if (memory != nullptr && result == nullptr && size == 0) {
    CountBlock(-1);
  }
  return result;
}

void* memalign(size_t alignment, size_t size) noexcept {
  return NoMemoryNow() ? nullptr : Counted(__libc_memalign(alignment, size));
}

void* aligned_alloc(size_t alignment, size_t size) noexcept { return memalign(alignment, size); }

int posix_memalign(void** memory, size_t alignment, size_t size) noexcept {
  *memory = memalign(alignment, size);
  return *memory == nullptr ? ENOMEM : 0;
}

void free(void* memory) noexcept {
  if (memory != nullptr) {
    CountBlock(-1);
  }
  __libc_free(memory);
}

void* mmap(void* address, size_t size, int protection, int flags, int descriptor, off_t position) noexcept {
  return NoMemoryNow() ? MAP_FAILED : REAL(mmap)(address, size, protection, flags, descriptor, position);
}

void* mmap64(void* address, size_t size, int protection, int flags, int descriptor, off64_t position) noexcept {
  return NoMemoryNow() ? MAP_FAILED : REAL(mmap64)(address, size, protection, flags, descriptor, position);
}
#endif
}

#ifdef QSBASE_TESTS_SANITIZED
// The sanitizers keep the memory of the C library themselves; operator new may be had.
namespace {

void* Allocate(std::size_t size) noexcept {
  void* const memory = FailsNow(FaultKind::Allocate) ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory != nullptr) {
    CountBlock(1);
  }
  return memory;
}

void* AllocateOrThrow(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void GiveBack(void* memory) noexcept {
  if (memory != nullptr) {
    CountBlock(-1);
  }
  std::free(memory);
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) { return AllocateOrThrow(size); }
[[gnu::noinline]] void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
[[gnu::noinline]] void operator delete(void* memory) noexcept { GiveBack(memory); }
[[gnu::noinline]] void operator delete[](void* memory) noexcept { GiveBack(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { GiveBack(memory); }
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept { GiveBack(memory); }
#endif
