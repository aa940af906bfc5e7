#include <QSbase/log/logfileos.h>

#include <sys/stat.h>

namespace qsbase::detail {

std::int64_t OsStreamFileSize(std::FILE* stream) noexcept {
  struct stat status {};
  return fstat(fileno(stream), &status) == 0 ? std::int64_t{status.st_size} : -1;
}

std::size_t OsLineFeedLength() noexcept { return 1; }

}  // namespace qsbase::detail
