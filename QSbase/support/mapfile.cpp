#include <QSbase/support/mapfile.h>

#include <array>
#include <cstddef>
#include <new>
#include <utility>

#include <QSbase/allocationerror.h>
#include <QSbase/cancelguard.h>
#include <QSbase/errors.h>
#include <QSbase/lasterrorguard.h>
#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/support/mapfileos.h>

using namespace qsbase::detail;

namespace {

/// The bytes that an offset of 32 bits can name.
constexpr std::uint64_t kAddressable = std::uint64_t{1} << 32;

/// "what: path (the system's text)".
std::string Failure(const char* what, const std::string& path) {
  return std::string(what) + ": " + path + " (" + LastErrorText() + ")";
}

std::intptr_t OpenOrThrow(const std::string& name, bool readOnly, FileUse use, std::uint64_t& size) {
  const std::intptr_t file = OsOpenExisting(name, readOnly, use, size);
  if (file == kNoHandle) {
    const LastErrorGuard keep;  // a program's first exception changes it on Windows
    throw ExBase(Failure("Unable to open file", name));
  }
  return file;
}

/// What went wrong in giving things back. Logged when all are given back, since a log callback may throw.
class Failures {
 public:
  void Check(bool done, const char* what) {
    if (!done) {
      _steps[_count++] = {what, QsGetLastError()};
    }
  }

  bool Any() const { return _count != 0; }

  /// Each as error "what (the system's text)".
  void Log() const {
    for (std::size_t i = 0; i < _count; ++i) {
      QsLogMsg(kLogError, std::string(_steps[i].what) + " (" + QsErrorMessage(_steps[i].error) + ")");
    }
  }

 private:
  struct Step {
    const char* what;
    int error;
  };
  std::array<Step, 3> _steps{};
  std::size_t _count = 0;
};

void CloseShared(std::intptr_t file) {
  Failures failures;
  failures.Check(file == kNoHandle || OsCloseFile(file), "QsSharedIOFile::Close: unable to close file handle");
  failures.Log();
}

/// Runs \p action in a destructor, which neither a log callback's exception nor a cancellation may leave.
template <class Action>
void Quietly(Action action) {
  const CancelGuard noCancellation;
  try {
    action();
  } catch (...) {
  }
}

}  // namespace

/// What it holds it gives back in the end, also when something was thrown between two steps of Open.
struct QsMapFile::Impl {
  void Open(const std::string& path, bool readOnly);
  /// What failed.
  Failures Close();

  void* view = nullptr;
  std::uint64_t size = 0;  // all of it, for unmapping
  std::string name;
  std::intptr_t file = kNoHandle;
  std::intptr_t mapping = kNoHandle;

 private:
  Failures Abandon();
  void CloseMapping(Failures& failures, const char* what);
  void CloseFile(Failures& failures, const char* what);
};

void QsMapFile::Impl::Open(const std::string& path, bool readOnly) {
  name = path;
  file = OpenOrThrow(path, readOnly, FileUse::Mapped, size);
  mapping = OsCreateMapping(file, readOnly, size);
  if (mapping == kNoHandle) {
    const LastErrorGuard keep;
    const std::string failure = Failure("Unable to create mapping for file", path);
    Abandon().Log();
    throw ExBase(failure);
  }
  view = OsMapView(mapping, readOnly, size);
  if (view == nullptr) {
    const LastErrorGuard keep;
    constexpr const char* kFailure = "Unable to create map file into memory";
    const std::string failure = Failure(kFailure, path);
    const Failures closing = Abandon();
    QsLogMsg(kLogError, failure);
    closing.Log();
    throw ExBase(kFailure);
  }
}

Failures QsMapFile::Impl::Abandon() {
  Failures failures;
  CloseFile(failures, "QsMapFileImpl::Open: Unable to close file handle");
  CloseMapping(failures, "QsMapFileImpl::Open: Unable to close mapped file handle");
  return failures;
}

Failures QsMapFile::Impl::Close() {
  Failures failures;
  if (view != nullptr) {
    failures.Check(OsUnmapView(std::exchange(view, nullptr), size), "Unable to unmap file from memory");
  }
  CloseMapping(failures, "QsMapFileImpl::Close: Unable to close mapped file handle");
  CloseFile(failures, "QsMapFileImpl::Close: Unable to close file handle");
  return failures;
}

void QsMapFile::Impl::CloseMapping(Failures& failures, const char* what) {
  if (mapping != kNoHandle) {
    failures.Check(OsCloseMapping(std::exchange(mapping, kNoHandle)), what);
  }
}

void QsMapFile::Impl::CloseFile(Failures& failures, const char* what) {
  if (file != kNoHandle) {
    failures.Check(OsCloseFile(std::exchange(file, kNoHandle)), what);
  }
}

QsMapFile::QsMapFile() : _impl(new (std::nothrow) Impl) {
  if (!_impl) {
    ThrowAllocationError("QsMapFile", "QSbase/support/mapfile", __LINE__);
  }
}

QsMapFile& QsMapFile::operator=(const QsMapFile& /*other*/) { return *this; }

QsMapFile::~QsMapFile() {
  Quietly([this] { _impl->Close().Log(); });
}

void QsMapFile::Open(const std::string& name, bool readOnly) {
  Close();
  _impl->Open(name, readOnly);
}

void QsMapFile::Close() {
  const Failures failures = _impl->Close();
  failures.Log();
  if (failures.Any()) {
    throw ExBase("Unable to unmap file from memory");
  }
}

void* QsMapFile::Ptr() const { return _impl->view; }

unsigned long QsMapFile::Size() const { return _impl->view == nullptr ? 0 : static_cast<std::uint32_t>(_impl->size); }

std::string QsMapFile::Name() const { return _impl->view == nullptr ? std::string() : _impl->name; }

QsSharedIOFile::QsSharedIOFile() : _file(kNoHandle), _size(0) {}

QsSharedIOFile::~QsSharedIOFile() {
  Quietly([this] { Close(); });
}

void QsSharedIOFile::Open(const std::string& name, bool readOnly) {
  std::uint64_t size = 0;
  const std::intptr_t file = OpenOrThrow(name, readOnly, FileUse::AtOffsets, size);
  const std::intptr_t before = std::exchange(_file, file);
  _size = static_cast<std::uint32_t>(size);
  CloseShared(before);
}

void QsSharedIOFile::Close() {
  _size = 0;
  CloseShared(std::exchange(_file, kNoHandle));
}

bool QsSharedIOFile::Read(unsigned offset, char* buffer, unsigned length) const {
  if (_file == kNoHandle || std::uint64_t{offset} + length > kAddressable) {
    return false;
  }
  return OsReadAt(_file, offset, buffer, length);
}

unsigned long QsSharedIOFile::Size() const { return _size; }
