#include "../streamos.h"

#include <sys/types.h>

namespace qs {

static_assert(sizeof(off_t) == sizeof(std::int64_t));

std::FILE* OpenTemporaryStream() { return std::tmpfile(); }

bool HoldNothingBack(std::FILE* stream) { return std::setvbuf(stream, nullptr, _IONBF, 0) == 0; }

std::int64_t StreamPosition(std::FILE* stream) { return ftello(stream); }

std::int64_t SeekToEnd(std::FILE* stream) { return fseeko(stream, 0, SEEK_END) == 0 ? ftello(stream) : -1; }

}  // namespace qs
