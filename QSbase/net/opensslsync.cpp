// OpenSSL before 1.1 takes its locks from the host; later ones turn the two registrations below into nothing.
#include <QSbase/net/http.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>

#include <openssl/crypto.h>

#include <QSbase/net/httptransfer.h>
#include <QSbase/process.h>
#include <QSbase/sync/criticalsection.h>
#include <QSbase/sync/lock.h>

namespace qsbase::detail {

namespace {

struct LockTable {
  explicit LockTable(std::size_t size) : count(size), sections(std::make_unique<QsCriticalSection[]>(size)) {}

  std::size_t count;
  std::unique_ptr<QsCriticalSection[]> sections;
};

constinit Lock installation;
std::atomic<LockTable*> locks{nullptr};

[[maybe_unused]] unsigned long ThreadId() { return static_cast<unsigned long>(QsGetCurrentThreadId()); }

}  // namespace

void LockOpenSSL(int mode, int index, const char*, int) {
  const LockTable* table = locks.load();
  if (table == nullptr || index < 0 || static_cast<std::size_t>(index) >= table->count) {
    return;
  }
  QsCriticalSection& section = table->sections[static_cast<std::size_t>(index)];
  if ((mode & 1) != 0) {
    section.Enter();
  } else {
    section.Leave();
  }
}

std::size_t OpenSSLLockCount() {
  const LockTable* table = locks.load();
  return table == nullptr ? 0 : table->count;
}

}  // namespace qsbase::detail

using namespace qsbase::detail;

bool QsInitOpenSSLSynchronization() {
  const std::lock_guard<Lock> guard(installation);
  if (locks.load() == nullptr) {
    const int count = std::max(CRYPTO_num_locks(), 1);
    locks = std::make_unique<LockTable>(static_cast<std::size_t>(count)).release();
    CRYPTO_set_locking_callback(&LockOpenSSL);
    CRYPTO_set_id_callback(&ThreadId);
  }
  return true;
}

bool QsDeinitOpenSSLSynchronization() {
  const std::lock_guard<Lock> guard(installation);
  if (locks.load() != nullptr) {
    CRYPTO_set_locking_callback(nullptr);
    CRYPTO_set_id_callback(nullptr);
    const std::unique_ptr<LockTable> table(locks.exchange(nullptr));
  }
  return true;
}
