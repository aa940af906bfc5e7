#include <QSbase/support/bufferedfile.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <new>
#include <utility>

#include <QSbase/cancelguard.h>
#include <QSbase/process.h>
#include <QSbase/support/fileos.h>

/// Not a C stream: that would split or join blocks by its own rules.
struct QsWriteBufferedFile::Impl {
  Impl(unsigned bufferSize, unsigned pauseMs) noexcept
      : buffer(new (std::nothrow) char[bufferSize]), capacity(bufferSize), pause(pauseMs) {}

  bool Open(const char* name);
  bool Write(const char* data, std::size_t total);
  bool Flush();
  int Close();

  qsbase::detail::OsFile file;
  const std::unique_ptr<char[]> buffer;
  const std::size_t capacity;
  std::size_t used = 0;
  const unsigned pause;
  unsigned slept = 0;

 private:
  bool WriteBlock(const char* data, std::size_t size);
};

/// Not noexcept: opening is where a thread may be cancelled, which passes as an exception.
bool QsWriteBufferedFile::Impl::Open(const char* name) {
  using qsbase::detail::OsFile;
  try {
    return buffer != nullptr && file.OpenWrite(name, OsFile::Writing::Truncate);
  } catch (const std::exception&) {
    return false;  // no memory for the name
  }
}

/// Fills the buffer up, writes whole blocks past it and keeps the tail.
bool QsWriteBufferedFile::Impl::Write(const char* data, std::size_t total) {
  const std::size_t first = std::min(total, capacity - used);
  std::memcpy(buffer.get() + used, data, first);
  used += first;
  if (used < capacity) {
    return true;
  }
  if (!Flush()) {
    return false;
  }
  const char* const end = data + total;
  for (data += first; static_cast<std::size_t>(end - data) >= capacity; data += capacity) {
    if (!WriteBlock(data, capacity)) {
      return false;
    }
  }
  used = static_cast<std::size_t>(end - data);
  std::memcpy(buffer.get(), data, used);
  return true;
}

/// What could not be written is lost.
bool QsWriteBufferedFile::Impl::Flush() {
  const std::size_t size = std::exchange(used, 0);
  return size == 0 || WriteBlock(buffer.get(), size);
}

bool QsWriteBufferedFile::Impl::WriteBlock(const char* data, std::size_t size) {
  const bool written = file.Write(data, size);
  if (pause != 0) {
    QsSleep(pause);
    slept += pause;
  }
  return written;
}

int QsWriteBufferedFile::Impl::Close() {
  const bool flushed = Flush();
  if (!file.Close()) {
    return EOF;
  }
  return flushed ? 0 : 1;
}

QsWriteBufferedFile::QsWriteBufferedFile() = default;

QsWriteBufferedFile::QsWriteBufferedFile(const char* name, unsigned bufferSize, unsigned pauseMs) {
  Open(name, bufferSize, pauseMs);
}

QsWriteBufferedFile::~QsWriteBufferedFile() {
  const qsbase::detail::CancelGuard noCancellation;
  Close();
}

bool QsWriteBufferedFile::Open(const char* name, unsigned bufferSize, unsigned pauseMs) {
  Close();
  if (name == nullptr || bufferSize == 0) {
    return false;
  }
  std::unique_ptr<Impl> opened(new (std::nothrow) Impl(bufferSize, pauseMs));
  if (!opened || !opened->Open(name)) {
    return false;
  }
  _impl = std::move(opened);
  return true;
}

unsigned QsWriteBufferedFile::Write(const void* data, unsigned size, unsigned count) {
  const std::uint64_t total = std::uint64_t{size} * count;
  if (!_impl || total == 0 || total > std::numeric_limits<std::size_t>::max()) {
    return 0;
  }
  return _impl->Write(static_cast<const char*>(data), static_cast<std::size_t>(total)) ? count : 0;
}

int QsWriteBufferedFile::Seek(long offset, int origin) {
  if (!_impl) {
    return -1;
  }
  const bool flushed = _impl->Flush();
  if (!_impl->file.Seek(offset, origin)) {
    return -1;
  }
  return flushed ? 0 : 1;
}

int QsWriteBufferedFile::Close() {
  const std::unique_ptr<Impl> closing = std::exchange(_impl, nullptr);
  return closing ? closing->Close() : 0;
}

unsigned QsWriteBufferedFile::GetSleepCount() const { return _impl ? _impl->slept : 0; }
