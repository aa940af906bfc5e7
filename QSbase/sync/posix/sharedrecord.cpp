#include <QSbase/sync/posix/sharedrecord.h>

#include <QSbase/cancelguard.h>
#include <QSbase/killguard.h>
#include <QSbase/lasterrorguard.h>
#include <QSbase/posix/uninterrupted.h>
#include <QSbase/sync/posix/futexevent.h>
#include <QSbase/sync/posix/sharedfile.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <thread>
#include <utility>

namespace qsbase::detail {

namespace {

constexpr std::uint64_t kMagic = 0x31544E4556455351;  // "QSEVENT1"

// Without waiting. l_type: F_RDLCK to share, F_WRLCK to have it alone, F_UNLCK; a lock that is held changes into it.
bool LockByte(int descriptor, short type, int byte) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = byte;
  lock.l_len = 1;
  return fcntl(descriptor, F_OFD_SETLK, &lock) == 0;
}

/// A descriptor that is closed at the end, unless it is kept. Its locks are given up by name, as a child that was
/// forked in between would hold on to them.
class Opened {
 public:
  explicit Opened(int descriptor) : _descriptor(descriptor) {}
  ~Opened() {
    if (_descriptor != -1) {
      const LastErrorGuard keepLastError;
      LockByte(_descriptor, F_UNLCK, kGate);
      LockByte(_descriptor, F_UNLCK, kLife);
      close(_descriptor);
    }
  }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;

  int Get() const { return _descriptor; }
  int Keep() { return std::exchange(_descriptor, -1); }

 private:
  int _descriptor;
};

/// Lets one user at a time join or leave. It is asked for again and again, since others who may open the file may also
/// stop in it.
class Gate {
 public:
  Gate(int descriptor, std::chrono::milliseconds patience) : _descriptor(descriptor) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!(_isIn = LockByte(descriptor, F_WRLCK, kGate)) && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  }
  ~Gate() {
    if (_isIn) {
      const LastErrorGuard keepLastError;
      LockByte(_descriptor, F_UNLCK, kGate);
    }
  }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  bool IsIn() const { return _isIn; }

 private:
  int _descriptor;
  bool _isIn = false;
};

std::int64_t SizeOf(int descriptor) {
  struct stat status;
  return fstat(descriptor, &status) == 0 ? std::int64_t{status.st_size} : -1;
}

// Empty is what its maker left who was killed.
bool MayBeRecord(int descriptor) {
  std::uint64_t magic = 0;
  const std::int64_t size = SizeOf(descriptor);
  return size == 0 || (pread(descriptor, &magic, sizeof(magic), 0) == sizeof(magic) && magic == kMagic);
}

// By writing, not through a mapping: a full file system refuses the one and kills for the other.
bool WriteAll(int descriptor, const std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = Uninterrupted(
        [&] { return pwrite(descriptor, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done)); });
    if (count == -1) {
      return false;
    }
    done += static_cast<std::size_t>(count);
  }
  return true;
}

bool SetMode(int descriptor, unsigned mode) {
  struct stat status;
  return fstat(descriptor, &status) == 0 && (status.st_uid != geteuid() || fchmod(descriptor, mode) == 0);
}

bool HoldsName(int descriptor, std::string_view name) {
  std::array<char, 256> part;
  off_t position = sizeof(EventRecord);
  while (!name.empty()) {
    const ssize_t count = pread(descriptor, part.data(), std::min(part.size(), name.size()), position);
    if (count <= 0 || !name.starts_with({part.data(), static_cast<std::size_t>(count)})) {
      return false;
    }
    name.remove_prefix(static_cast<std::size_t>(count));
    position += count;
  }
  return true;
}

std::string FreshContent(const std::string& name, bool manualReset, bool initialState) {
  const EventRecord record{kMagic, name.size(), manualReset ? 1U : 0U, {FreshEventWord(initialState)}};
  std::string content(reinterpret_cast<const char*>(&record), sizeof(record));
  return content.append(name);
}

}  // namespace

bool SharedRecord::Join(bool manualReset, bool initialState, std::chrono::milliseconds patience) {
  const KillGuard guard;
  const std::string fresh = FreshContent(_place.name, manualReset, initialState);  // memory before there is a file
  Step step = Step::Again;
  while (step == Step::Again) {
    step = TryJoin(fresh, patience);
  }
  return step == Step::Done;
}

SharedRecord::Step SharedRecord::TryJoin(const std::string& fresh, std::chrono::milliseconds patience) {
  Opened file(OpenSharedFile(_place.path, _place.mode, SharedFileModes::AsTheyAre));
  if (file.Get() == -1) {
    return Step::Failed;
  }
  const Gate gate(file.Get(), patience);
  if (!gate.IsIn()) {
    errno = EBUSY;
    return Step::Failed;
  }
  if (!IsStillAt(file.Get(), _place.path)) {
    return Step::Again;
  }
  if (!MayBeRecord(file.Get())) {
    errno = EBADMSG;
    return Step::Failed;
  }
  const bool isAlone = LockByte(file.Get(), F_WRLCK, kLife);
  if ((!isAlone || Start(file.Get(), fresh)) && LockByte(file.Get(), F_RDLCK, kLife) && Map(file.Get())) {
    _descriptor = file.Keep();
    return Step::Done;
  }
  if (isAlone) {
    const LastErrorGuard keepLastError;
    unlink(_place.path.c_str());
  }
  return Step::Failed;
}

// Nobody else has it.
bool SharedRecord::Start(int descriptor, const std::string& fresh) const {
  return SetMode(descriptor, _place.mode) && ftruncate(descriptor, 0) == 0 && WriteAll(descriptor, fresh);
}

bool SharedRecord::Map(int descriptor) {
  const std::size_t length = _place.name.size();
  if (SizeOf(descriptor) != static_cast<std::int64_t>(sizeof(EventRecord) + length) ||
      !HoldsName(descriptor, _place.name)) {
    errno = EBADMSG;
    return false;
  }
  void* const memory = mmap(nullptr, sizeof(EventRecord), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) {
    return false;
  }
  _record = static_cast<EventRecord*>(memory);
  return true;
}

// Not unlocked but closed only: a forked child may go on with the descriptor that it inherited.
SharedRecord::~SharedRecord() {
  if (_record == nullptr) {
    return;
  }
  const KillGuard guard;
  const CancelGuard noCancellation;
  const LastErrorGuard keepLastError;
  munmap(_record, sizeof(EventRecord));
  close(_descriptor);
  const Opened file(OpenExistingSharedFile(_place.path, _place.mode, SharedFileModes::AsTheyAre));
  if (file.Get() == -1) {
    return;
  }
  const Gate gate(file.Get(), std::chrono::seconds(1));
  if (gate.IsIn() && IsStillAt(file.Get(), _place.path) && LockByte(file.Get(), F_WRLCK, kLife)) {
    unlink(_place.path.c_str());
  }
}

}  // namespace qsbase::detail
