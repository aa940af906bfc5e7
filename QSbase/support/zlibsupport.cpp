// Compression of buffers and strings; the texts of the result codes.
#include <QSbase/support/zlibsupport.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include <zlib.h>

#include <QSbase/allocationerror.h>
#include <QSbase/support/zlibpieces.h>

namespace qsbase::detail {

namespace {

// A stream of zlib over two buffers.
class PiecewiseStream {
 public:
  PiecewiseStream(const ZBuffers& buffers, std::size_t piece)
      : _buffers(buffers), _piece(piece), _inLeft(buffers.srcLen), _outLeft(buffers.destLen) {
    // zlib writes nothing through it.
    stream.next_in = const_cast<unsigned char*>(buffers.src);
    stream.next_out = buffers.dest;
  }

  // Gives zlib more where it has none left. False if there is no more.
  bool Refill() {
    const bool input = Take(stream.avail_in, _inLeft);
    return Take(stream.avail_out, _outLeft) || input;
  }

  bool IsAllInputGiven() const { return _inLeft == 0; }

  void Count(ZBuffers& buffers) const {
    buffers.srcLen = static_cast<std::size_t>(stream.next_in - _buffers.src);
    buffers.destLen = static_cast<std::size_t>(stream.next_out - _buffers.dest);
  }

  z_stream stream{};

 private:
  bool Take(uInt& available, std::size_t& left) const {
    if (available != 0 || left == 0) {
      return false;
    }
    available = static_cast<uInt>(std::min(left, _piece));
    left -= available;
    return true;
  }

  const ZBuffers _buffers;
  const std::size_t _piece;
  std::size_t _inLeft;
  std::size_t _outLeft;
};

int Inflate(ZBuffers& buffers, std::size_t piece, int flush) {
  PiecewiseStream pieces(buffers, piece);
  pieces.Refill();
  int result = inflateInit(&pieces.stream);
  if (result == Z_OK) {
    do {
      result = inflate(&pieces.stream, flush);
    } while ((result == Z_OK || result == Z_BUF_ERROR) && pieces.Refill() &&
             (flush == Z_FINISH || pieces.stream.avail_out != 0));
    inflateEnd(&pieces.stream);
  }
  pieces.Count(buffers);
  return result;
}

}  // namespace

int DeflateAll(ZBuffers& buffers, std::size_t piece) {
  PiecewiseStream pieces(buffers, piece);
  int result = deflateInit(&pieces.stream, Z_DEFAULT_COMPRESSION);
  if (result == Z_OK) {
    do {
      pieces.Refill();
      result = deflate(&pieces.stream, pieces.IsAllInputGiven() ? Z_FINISH : Z_NO_FLUSH);
    } while (result == Z_OK);
    deflateEnd(&pieces.stream);
  }
  pieces.Count(buffers);
  return result == Z_STREAM_END ? Z_OK : result;
}

int InflateAll(ZBuffers& buffers, std::size_t piece) { return Inflate(buffers, piece, Z_FINISH); }

int InflateHead(ZBuffers& buffers, std::size_t piece) { return Inflate(buffers, piece, Z_NO_FLUSH); }

}  // namespace qsbase::detail

using namespace qsbase::detail;

namespace {

constexpr const char* kTopic = "QSbase/support/zlibsupport";

struct Free {
  void operator()(unsigned char* memory) const { std::free(memory); }
};

// Not a string: that would be filled with zeros first.
std::unique_ptr<unsigned char, Free> Allocate(std::size_t size, const char* what, int line) {
  std::unique_ptr<unsigned char, Free> memory(static_cast<unsigned char*>(std::malloc(std::max<std::size_t>(size, 1))));
  if (!memory) {
    ThrowAllocationError(what, kTopic, line);
  }
  return memory;
}

void Assign(std::string& out, const ZBuffers& produced, const char* what, int line) {
  try {
    out.assign(reinterpret_cast<const char*>(produced.dest), produced.destLen);
  } catch (const std::bad_alloc&) {
    ThrowAllocationError(what, kTopic, line);
  }
}

const unsigned char* Bytes(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); }

// zlib's compressBound for sizes that an unsigned long does not hold.
std::size_t CompressBound(std::size_t size) { return size + (size >> 12) + (size >> 14) + (size >> 25) + 13; }

// Says of a stream that does not end in its buffer what zlib's uncompress() says. `isCut`: whether it is the input
// that ended, when neither side could go on.
int UncompressResult(int result, bool isCut) {
  if (result == Z_STREAM_END) {
    return Z_OK;
  }
  return result == Z_NEED_DICT || (result == Z_BUF_ERROR && isCut) ? Z_DATA_ERROR : result;
}

struct CodeText {
  int code;
  const char* text;
};

constexpr CodeText kEntryTexts[] = {
    {-1, "No open unzFile object or file not found in archive"},
    {-2, "Could not open file in archive"},
    {-3, "Could not create new file"},
    {-4, "Could not allocate buffer for file extraction"},
    {-5, "Could not read compressed file"},
    {-6, "Could not write uncompressed file"},
    {-7, "Could not close file"},
    {-8, "CRC error"},
    {-9, "Unknown error during extraction"},
    {-10, "No extraction possible. All destination paramters are NULL"},
    {-11, "Filename is empty"},
    {-12, "Invalid unzFile object"},
    {-13, "unsupported compression method"},
    {-14, "file is password-protected"},
};

constexpr CodeText kArchiveTexts[] = {
    {-1, "Extraction error"},
    {-2, "Parameter 'filename' is empty"},
    {-3, "Parameter 'folder' is empty"},
    {-4, "Could not open file"},
    {-5, "File does not exist"},
    {-6, "Could not create output directory"},
    {-7, "Could not create a subdirectory"},
    {-8, "Aborted by user request"},
    {-9, "unzGoToNextFile failed"},
    {-10, "unzGetCurrentFileInfo failed"},
    {-11, "unzGetGlobalInfo failed"},
};

template <std::size_t kCount>
const char* TextOf(const CodeText (&texts)[kCount], int code) {
  const auto* const found =
      std::find_if(std::begin(texts), std::end(texts), [code](const CodeText& entry) { return entry.code == code; });
  return found == std::end(texts) ? "" : found->text;
}

}  // namespace

QsProgressAndAbortHandler::~QsProgressAndAbortHandler() = default;

void QsGetZlibVersion(std::string& version) { version = "1.2.5"; }

int QsCompress(unsigned char* dest, unsigned long* destLen, const unsigned char* src, unsigned long srcLen) {
  return destLen == nullptr ? Z_STREAM_ERROR : compress(dest, destLen, src, srcLen);
}

int QsCompress(std::string& out, const std::string& in) {
  constexpr const char* kWhat = "QsCompress";
  const std::size_t bound = CompressBound(in.size());
  const auto memory = Allocate(bound, kWhat, __LINE__);
  ZBuffers buffers{memory.get(), bound, Bytes(in), in.size()};
  const int result = DeflateAll(buffers);
  Assign(out, buffers, kWhat, __LINE__);
  return result;
}

int QsUncompress(unsigned char* dest, unsigned long* destLen, const unsigned char* src, unsigned long srcLen) {
  return destLen == nullptr ? Z_STREAM_ERROR : uncompress(dest, destLen, src, srcLen);
}

int QsUncompress(unsigned char* dest, unsigned long* destLen, const unsigned char* src, unsigned long* srcLen) {
  if (destLen == nullptr || srcLen == nullptr) {
    return Z_STREAM_ERROR;
  }
  ZBuffers buffers{dest, *destLen, src, *srcLen};
  const int result = InflateAll(buffers);
  if (result != Z_STREAM_END) {
    return UncompressResult(result, buffers.srcLen == *srcLen);
  }
  *destLen = static_cast<unsigned long>(buffers.destLen);
  *srcLen = static_cast<unsigned long>(buffers.srcLen);
  return Z_OK;
}

int QsUncompress(std::string& out, unsigned long size, const std::string& in) {
  constexpr const char* kWhat = "QsUncompress";
  const auto memory = Allocate(size, kWhat, __LINE__);
  ZBuffers buffers{memory.get(), size, Bytes(in), in.size()};
  const int result = InflateAll(buffers);
  Assign(out, buffers, kWhat, __LINE__);
  return UncompressResult(result, size == 0 || buffers.destLen < size);
}

int QsUncompress_Part(unsigned char* dest, unsigned long* destLen, const unsigned char* src, unsigned long* srcLen) {
  if (destLen == nullptr || srcLen == nullptr) {
    return Z_STREAM_ERROR;
  }
  ZBuffers buffers{dest, *destLen, src, *srcLen};
  const int result = InflateHead(buffers);
  if (result == Z_OK && buffers.destLen != *destLen) {
    return Z_DATA_ERROR;
  }
  if (result == Z_OK || result == Z_STREAM_END) {
    *srcLen = static_cast<unsigned long>(buffers.srcLen);
    *destLen = static_cast<unsigned long>(buffers.destLen);
    return Z_OK;
  }
  return result;
}

void QsGetZLibErrorMessage(int code, std::string& text) { text = TextOf(kEntryTexts, code); }

bool QsGetZLibErrorMessageWholeFile(int code, std::string& text) {
  text = TextOf(kArchiveTexts, code);
  return code == -8;
}
