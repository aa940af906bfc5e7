#include <QSbase/support/qsfile.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <limits>

#include <QSbase/cancelguard.h>
#include <QSbase/support/fileos.h>

using qsbase::detail::OsStreamFailed;

namespace {

std::FILE* OpenStream(const char* name, const char* mode) {
  return name == nullptr || mode == nullptr ? nullptr : qsbase::detail::OsOpenStream(name, mode);
}

/// Passes a result of the C library on, and sees to the last error if it is a failure.
template <class Result>
Result Reported(Result result, bool failed) {
  if (failed) {
    OsStreamFailed();
  }
  return result;
}

/// A read or write of fewer items than asked for, or of a byte, also ends so at the end of the file.
template <class Result>
Result ReportedIfError(Result result, bool incomplete, std::FILE* stream) {
  return Reported(result, incomplete && stream != nullptr && std::ferror(stream) != 0);
}

unsigned WriteItems(std::FILE* stream, const void* items, std::size_t size, std::size_t count) {
  const std::size_t written = stream == nullptr ? 0 : std::fwrite(items, size, count, stream);
  return static_cast<unsigned>(ReportedIfError(written, written != count, stream));
}

}  // namespace

QsFile::QsFile() : _stream(nullptr) {}

QsFile::QsFile(const char* name, const char* mode) : _stream(OpenStream(name, mode)) {}

QsFile::~QsFile() {
  const qsbase::detail::CancelGuard noCancellation;
  QsFile::Close();
}

bool QsFile::Open(const char* name, const char* mode) {
  Close();
  _stream = OpenStream(name, mode);
  return IsOpen();
}

bool QsFile::Reset(const char* name) { return Open(name, "w") && Close() == 0; }

int QsFile::Close() {
  std::FILE* const stream = _stream;
  _stream = nullptr;
  const int result = stream == nullptr ? 0 : qsbase::detail::OsCloseStream(stream);
  return Reported(result, result != 0);
}

bool QsFile::IsOpen() const { return _stream != nullptr; }

bool QsFile::IsEOF() const { return _stream != nullptr && std::feof(_stream) != 0; }

bool QsFile::IsError() const { return _stream != nullptr && std::ferror(_stream) != 0; }

unsigned QsFile::Read(void* buffer, unsigned size, unsigned count) const {
  if (_stream == nullptr) {
    return 0;
  }
  const auto read = static_cast<unsigned>(std::fread(buffer, size, count, _stream));
  return ReportedIfError(read, read != count, _stream);
}

int QsFile::ReadMediumString(std::string& out) const {
  out.clear();
  if (!IsOpen()) {
    return -2;
  }
  std::uint16_t length = 0;
  if (Read(&length, sizeof length, 1) != 1) {
    return -3;
  }
  try {
    out.resize(length);
  } catch (const std::exception&) {
    return -4;
  }
  if (Read(out.data(), 1, length) != length) {
    out.clear();
    return -5;
  }
  return 0;
}

unsigned QsFile::Write(const std::string& data) const { return WriteItems(_stream, data.data(), data.size(), 1); }

unsigned QsFile::Write(const void* buffer, unsigned size, unsigned count) const {
  return WriteItems(_stream, buffer, size, count);
}

int QsFile::Seek(long offset, int origin) const {
  if (_stream == nullptr) {
    return -1;
  }
  const bool done = qsbase::detail::OsSeek(_stream, offset, origin);
  return Reported(done ? 0 : -1, !done);
}

int QsFile::GetChar() const {
  const int c = _stream == nullptr ? EOF : std::fgetc(_stream);
  return ReportedIfError(c, c == EOF, _stream);
}

int QsFile::PutChar(int c) const {
  const int written = _stream == nullptr ? EOF : std::fputc(c, _stream);
  return ReportedIfError(written, written == EOF, _stream);
}

int QsFile::PutString(const char* s) const {
  const int result = _stream == nullptr ? EOF : std::fputs(s, _stream);
  return ReportedIfError(result, result < 0, _stream);
}

char* QsFile::GetString(char* buffer, int size) const {
  char* const line = _stream == nullptr ? nullptr : std::fgets(buffer, size, _stream);
  return ReportedIfError(line, line == nullptr, _stream);
}

QsFile::operator std::FILE*() { return _stream; }

QsFile::operator std::FILE*() const { return _stream; }

long QsFile::Tell() const {
  const std::int64_t position = _stream == nullptr ? -1 : qsbase::detail::OsTell(_stream);
  if (position > std::numeric_limits<long>::max()) {
    errno = EOVERFLOW;
    return Reported(-1L, true);
  }
  return Reported(static_cast<long>(position), position < 0 && _stream != nullptr);
}

int QsFile::Flush() const {
  const int result = _stream == nullptr ? EOF : std::fflush(_stream);
  return Reported(result, result != 0 && _stream != nullptr);
}

long QsFile::GetSize() {
  const long position = Tell();
  if (position < 0 || Seek(0, SEEK_END) != 0) {
    return -1;
  }
  const long size = Tell();
  Seek(position, SEEK_SET);
  return size;
}

void QsFile::GetLine(std::string& line) {
  line.clear();
  for (int c = GetChar(); c != '\n' && c != EOF; c = GetChar()) {
    line += static_cast<char>(c);
  }
  if (!line.empty() && line.back() == '\r') {
    line.pop_back();
  }
}
