// The record of a named event when the memory runs out; integration/namedevent_test.cpp has all else.
#include <QSbase/process.h>
#include <QSbase/sync/eventos.h>
#include <QSbase/sync/posix/sharedfile.h>
#include <QSbase/sync/posix/sharedrecord.h>

#include <common/sanitized.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>

namespace {

// How many allocations of this thread still succeed; no limit when negative.
thread_local int allocationsLeft = -1;

void* Allocate(std::size_t size) noexcept {
  if (allocationsLeft == 0) {
    return nullptr;
  }
  allocationsLeft -= allocationsLeft > 0 ? 1 : 0;
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using qsbase::detail::EventOs;
using qsbase::detail::OpenSharedFile;
using qsbase::detail::SharedFilePath;
using qsbase::detail::SharedFileScope;
using qsbase::detail::SharedRecord;

// Calls with memory for no allocation, for one, and so on, until it does not run out.
template <class Call>
void WithEverMoreMemory(Call call) {
  int count = 0;
  do {
    allocationsLeft = count++;
    try {
      call();
    } catch (const std::bad_alloc&) {
    }
  } while (std::exchange(allocationsLeft, -1) == 0);
}

class SharedRecordTest : public ::testing::Test {
 protected:
  // Enough that the number of the next one is long.
  SharedRecordTest() {
    for (int& descriptor : _descriptors) {
      descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
  }
  ~SharedRecordTest() override {
    for (const int descriptor : _descriptors) {
      close(descriptor);
    }
    unlink(path.c_str());
  }

  bool FileExists() const { return access(path.c_str(), F_OK) == 0; }

  static int NextDescriptor() {
    const int next = dup(0);
    close(next);
    return next;
  }

  const std::string name = "qsbase unit test of a record, process " + std::to_string(QsGetCurrentProcessId());
  const std::string path = SharedFilePath("event", name, SharedFileScope::User);

 private:
  std::array<int, 20> _descriptors{};
};

TEST_F(SharedRecordTest, WithoutMemoryNoDescriptorStaysOpen) {
  const int before = NextDescriptor();
  WithEverMoreMemory([&] {
    const int descriptor = OpenSharedFile(path, 0600);
    ASSERT_NE(descriptor, -1);
    close(descriptor);
    unlink(path.c_str());
  });
  EXPECT_EQ(NextDescriptor(), before);
}

TEST_F(SharedRecordTest, WithoutMemoryNothingStays) {
  const int before = NextDescriptor();
  int failures = 0;
  bool isMade = false;
  WithEverMoreMemory([&] {
    const std::unique_ptr<EventOs> event = EventOs::MakeNamed(true, true, name.c_str(), false);
    isMade = event != nullptr;
    EXPECT_EQ(FileExists(), isMade);
    failures += isMade ? 0 : 1;
  });
  EXPECT_TRUE(isMade);
  EXPECT_GT(failures, 0);
  EXPECT_EQ(NextDescriptor(), before);
  EXPECT_FALSE(FileExists());
}

// What makes or leaves an event lets nothing out, so not the exception of a cancellation either.
TEST_F(SharedRecordTest, ACancelledThreadIsNotStoppedInside) {
  bool isMade = false;
  std::thread thread([&] {
    pthread_cancel(pthread_self());
    isMade = EventOs::MakeNamed(true, true, name.c_str(), false) != nullptr;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  });
  thread.join();
  EXPECT_TRUE(isMade);
  EXPECT_FALSE(FileExists());
}

TEST_F(SharedRecordTest, WithoutAddressSpaceNothingStays) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer needs address space for itself";
#endif
  struct rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
  const rlimit tight{4096, before.rlim_max};
  SharedRecord record({path, 0600, name});
  ASSERT_EQ(setrlimit(RLIMIT_AS, &tight), 0);
  const bool isJoined = record.Join(true, true);
  const int error = errno;
  setrlimit(RLIMIT_AS, &before);
  EXPECT_FALSE(isJoined);
  EXPECT_EQ(error, ENOMEM);
  EXPECT_FALSE(FileExists());
}

}  // namespace
