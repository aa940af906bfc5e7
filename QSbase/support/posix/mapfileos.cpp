#include <QSbase/support/mapfileos.h>

#include <cerrno>
#include <cstddef>
#include <limits>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QSbase/lasterrorguard.h>
#include <QSbase/posix/uninterrupted.h>
#include <QSbase/support/posix/openregular.h>

namespace qsbase::detail {

std::intptr_t OsOpenExisting(const std::string& path, bool readOnly, FileUse /*use*/, std::uint64_t& size) {
  const int descriptor = OpenRegular(path, readOnly ? O_RDONLY : O_RDWR);
  if (descriptor == -1) {
    return kNoHandle;
  }
  struct stat status;
  if (fstat(descriptor, &status) != 0) {
    const LastErrorGuard keep;
    CloseDescriptor(descriptor);
    return kNoHandle;
  }
  size = static_cast<std::uint64_t>(status.st_size);
  return descriptor;
}

bool OsCloseFile(std::intptr_t file) { return CloseDescriptor(static_cast<int>(file)); }

// A view is made from the descriptor itself; what is refused here it would refuse too.
std::intptr_t OsCreateMapping(std::intptr_t file, bool /*readOnly*/, std::uint64_t size) {
  if (size == 0) {
    errno = EINVAL;
    return kNoHandle;
  }
  return file;
}

bool OsCloseMapping(std::intptr_t /*mapping*/) { return true; }

void* OsMapView(std::intptr_t mapping, bool readOnly, std::uint64_t size) {
  if (size > std::numeric_limits<std::size_t>::max()) {
    errno = ENOMEM;
    return nullptr;
  }
  const int protection = readOnly ? PROT_READ : PROT_READ | PROT_WRITE;
  void* const view =
      mmap(nullptr, static_cast<std::size_t>(size), protection, MAP_SHARED, static_cast<int>(mapping), 0);
  return view == MAP_FAILED ? nullptr : view;
}

bool OsUnmapView(void* view, std::uint64_t size) { return munmap(view, static_cast<std::size_t>(size)) == 0; }

bool OsReadAt(std::intptr_t file, std::uint64_t position, void* buffer, std::uint32_t length) {
  char* const bytes = static_cast<char*>(buffer);
  std::uint32_t done = 0;
  while (done < length) {
    const ssize_t count = Uninterrupted([&] {
      return pread(static_cast<int>(file), bytes + done, length - done, static_cast<off_t>(position + done));
    });
    if (count <= 0) {
      return false;
    }
    done += static_cast<std::uint32_t>(count);
  }
  return true;
}

}  // namespace qsbase::detail
