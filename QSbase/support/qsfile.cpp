#include <QSbase/support/qsfile.h>

#include <cstdint>
#include <exception>

#include <QSbase/support/fileos.h>

namespace {

std::FILE* OpenStream(const char* name, const char* mode) {
  return name == nullptr || mode == nullptr ? nullptr : qsbase::detail::OsOpenStream(name, mode);
}

}  // namespace

QsFile::QsFile() : _stream(nullptr) {}

QsFile::QsFile(const char* name, const char* mode) : _stream(OpenStream(name, mode)) {}

QsFile::~QsFile() { QsFile::Close(); }

bool QsFile::Open(const char* name, const char* mode) {
  Close();
  _stream = OpenStream(name, mode);
  return IsOpen();
}

bool QsFile::Reset(const char* name) { return Open(name, "w") && Close() == 0; }

int QsFile::Close() {
  std::FILE* const stream = _stream;
  _stream = nullptr;
  return stream == nullptr ? 0 : std::fclose(stream);
}

bool QsFile::IsOpen() const { return _stream != nullptr; }

bool QsFile::IsEOF() const { return _stream != nullptr && std::feof(_stream) != 0; }

bool QsFile::IsError() const { return _stream != nullptr && std::ferror(_stream) != 0; }

unsigned QsFile::Read(void* buffer, unsigned size, unsigned count) const {
  return _stream == nullptr ? 0 : static_cast<unsigned>(std::fread(buffer, size, count, _stream));
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

unsigned QsFile::Write(const std::string& data) const {
  return _stream == nullptr ? 0 : static_cast<unsigned>(std::fwrite(data.data(), data.size(), 1, _stream));
}

unsigned QsFile::Write(const void* buffer, unsigned size, unsigned count) const {
  return _stream == nullptr ? 0 : static_cast<unsigned>(std::fwrite(buffer, size, count, _stream));
}

int QsFile::Seek(long offset, int origin) const {
  return _stream == nullptr ? -1 : std::fseek(_stream, offset, origin);
}

int QsFile::GetChar() const { return _stream == nullptr ? EOF : std::fgetc(_stream); }

int QsFile::PutChar(int c) const { return _stream == nullptr ? EOF : std::fputc(c, _stream); }

int QsFile::PutString(const char* s) const { return _stream == nullptr ? EOF : std::fputs(s, _stream); }

char* QsFile::GetString(char* buffer, int size) const {
  return _stream == nullptr ? nullptr : std::fgets(buffer, size, _stream);
}

QsFile::operator std::FILE*() { return _stream; }

QsFile::operator std::FILE*() const { return _stream; }

long QsFile::Tell() const { return _stream == nullptr ? -1 : std::ftell(_stream); }

int QsFile::Flush() const { return _stream == nullptr ? EOF : std::fflush(_stream); }

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
