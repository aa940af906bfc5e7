// Loading and comparing of files.
#include <QSbase/support/filesupport.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <new>

#include <QSbase/allocationerror.h>
#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/support/filedetail.h>
#include <QSbase/support/fileos.h>
#include <QSbase/support/paths.h>

using namespace qsbase::detail;

namespace {

constexpr std::size_t kTextBlock = 16384;
constexpr std::int64_t kMaxBufferedSize = 4294967295;  // 4 GiB - 1

// Allocates size bytes for out. `what` begins the exception's text.
void Allocate(std::string& out, std::uint64_t size, const char* what, int line) {
  try {
    if (size <= out.max_size()) {
      out.resize(static_cast<std::size_t>(size));
      return;
    }
  } catch (const std::bad_alloc&) {
    // reported below
  }
  ThrowAllocationError(what, kFileTopic, line);
}

// How much to read of a file of `size` bytes. A negative length other than -1 asks for more than any memory has.
std::uint64_t WantedSize(std::int64_t size, int length) {
  return static_cast<std::uint64_t>(length != -1 && length < size ? length : size);
}

// A Ctrl-Z ends a text on Windows: so it is in every text stream of the C runtime there.
constexpr bool EndsText([[maybe_unused]] char c) {
#ifdef _WIN32
  return c == '\x1a';
#else
  return false;
#endif
}

// Reads up to so many bytes as text: CR LF gives LF, any other CR stays.
std::size_t ReadText(OsFile& file, char* out, std::size_t wanted) {
  std::array<char, kTextBlock> block;
  std::size_t produced = 0;
  bool heldReturn = false;
  bool ended = false;
  while (produced < wanted && !ended) {
    const std::ptrdiff_t count = file.Read(block.data(), block.size());
    if (count <= 0) {
      break;
    }
    for (std::ptrdiff_t i = 0; i < count && produced < wanted && !ended; ++i) {
      const char c = block[static_cast<std::size_t>(i)];
      ended = EndsText(c);
      if (heldReturn && c != '\n') {
        out[produced++] = '\r';
      }
      heldReturn = c == '\r';
      if (!heldReturn && !ended && produced < wanted) {
        out[produced++] = c;
      }
    }
  }
  if (heldReturn && produced < wanted) {
    out[produced++] = '\r';
  }
  return produced;
}

// Kept: what a length exceeds a multiple by is added, not what it lacks to the next one; 11 becomes 14 with 4.
std::uint64_t AlignedLength(std::uint64_t length, unsigned alignment) {
  return alignment > 1 ? length + length % alignment : length;
}

// Fills the array and puts zeros behind; how many bytes were read, -1 if that counts as a failure.
std::int64_t FillBuffer(OsFile& file, char* buffer, std::size_t wanted, std::size_t length, bool binary,
                        unsigned alignment) {
  const std::int64_t count =
      binary ? file.Read(buffer, wanted) : static_cast<std::int64_t>(ReadText(file, buffer, wanted));
  if (binary ? count != static_cast<std::int64_t>(wanted) : count < 1) {
    return -1;
  }
  std::memset(buffer + count, 0, alignment > 1 ? length - static_cast<std::size_t>(count) : 1);
  return count;
}

std::unique_ptr<char[]> TryAllocate(std::uint64_t size) {
  if (size > static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max())) {
    return nullptr;
  }
  return std::unique_ptr<char[]>(new (std::nothrow) char[static_cast<std::size_t>(size)]);
}

int CompareContents(OsFile& a, OsFile& b, unsigned blockSize) {
  const std::unique_ptr<char[]> blockA = blockSize == 0 ? nullptr : TryAllocate(blockSize);
  const std::unique_ptr<char[]> blockB = blockSize == 0 ? nullptr : TryAllocate(blockSize);
  if (!blockA || !blockB) {
    return -6;
  }
  std::ptrdiff_t count = 0;
  do {
    count = a.Read(blockA.get(), blockSize);
    if (count < 0 || b.Read(blockB.get(), blockSize) != count ||
        std::memcmp(blockA.get(), blockB.get(), static_cast<std::size_t>(count)) != 0) {
      return -11;
    }
  } while (count == static_cast<std::ptrdiff_t>(blockSize));
  return 0;
}

std::string StreamContent(std::FILE* stream) {
  std::string content;
  const std::int64_t size = OsSeek(stream, 0, SEEK_END) ? OsTell(stream) : -1;
  if (size < 0 || !OsSeek(stream, 0, SEEK_SET)) {
    return content;
  }
  Allocate(content, static_cast<std::uint64_t>(size), "buffer", __LINE__);
  content.resize(std::fread(content.data(), 1, content.size(), stream));
  std::rewind(stream);
  return content;
}

}  // namespace

bool QsLoadFilePart(const std::string& path, unsigned offset, int length, std::string& out) {
  const std::string translated = QsTranslateFilename(path);  // before the output is cleared: it may be the same object
  out.clear();
  OsFile file;
  FileStatus status;
  if (!file.OpenRead(translated) || !file.Describe(status) || !file.Seek(offset)) {
    return false;
  }
  Allocate(out, WantedSize(status.size, length), "QsLoadFilePart cannot allocate buffer!", __LINE__);
  const std::ptrdiff_t count = file.Read(out.data(), out.size());
  out.resize(static_cast<std::size_t>(std::max<std::ptrdiff_t>(count, 0)));
  return count >= 0;
}

bool QsFileHead(const std::string& path, int length, std::string& out) { return QsLoadFilePart(path, 0, length, out); }

std::string LoadBinaryFile(const std::string& path) {
  std::string content;
  if (!QsLoadFilePart(path, 0, -1, content)) {
    QsLogMsg(kLogWarning, "LoadBinaryFile: Could not load '" + path + "' (" + LastErrorText() + ")");
  }
  return content;
}

std::string GetFileContent(std::FILE*& stream) {
  if (stream == nullptr) {
    return std::string();
  }
  try {
    return StreamContent(stream);
  } catch (const ExBase& error) {
    QsLogMsg(kLogError, error.GetErrorText());
  } catch (const std::exception& error) {
    QsLogMsg(kLogError, std::string(error.what()));
  }
  return std::string();
}

int CAL_ReadFileToBuffer(const char* name, char** buffer, unsigned& size, unsigned maxSize, bool binary,
                         unsigned alignment) {
  size = 0;
  if (buffer != nullptr) {
    *buffer = nullptr;
  }
  if (name == nullptr || buffer == nullptr) {
    return -4;
  }
  std::int64_t fileSize = 0;
  if (QsGetFileSize64(name, fileSize) != 0) {
    return -6;
  }
  if (fileSize <= 0) {
    return -10;
  }
  if (fileSize >= kMaxBufferedSize) {
    return -11;
  }
  const unsigned toRead = std::min(static_cast<unsigned>(fileSize), maxSize);
  OsFile file;
  if (!file.OpenRead(QsTranslateFilename(name))) {
    return -2;
  }
  const std::uint64_t length = AlignedLength(std::uint64_t{toRead} + 1, alignment);
  std::unique_ptr<char[]> content = TryAllocate(length);
  if (!content) {
    return -3;
  }
  if (FillBuffer(file, content.get(), toRead, static_cast<std::size_t>(length), binary, alignment) < 0) {
    return -5;
  }
  *buffer = content.release();
  size = toRead;
  return 0;
}

int CAL_CompareFile(const char* a, const char* b, int mode, unsigned blockSize) {
  std::int64_t sizeA = 0;
  std::int64_t sizeB = 0;
  if (QsGetFileSize64(a, sizeA) != 0) {
    return -2;
  }
  const bool foundB = QsGetFileSize64(b, sizeB) == 0;
  if (sizeA != sizeB) {
    return foundB ? -10 : -3;
  }
  if (mode == 1) {
    return 0;
  }
  OsFile fileA;
  OsFile fileB;
  if (!fileA.OpenRead(QsTranslateFilename(a))) {
    return -4;
  }
  if (b == nullptr || !fileB.OpenRead(QsTranslateFilename(b))) {
    return -5;
  }
  return CompareContents(fileA, fileB, blockSize);
}
