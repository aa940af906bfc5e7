/// \file
/// The record of an event in shared memory that processes find by a name, and that lives as long as its users do
/// (internal).
///
/// The record is a file. Every user has opened it for himself and shares a lock on its byte kLife until he leaves or
/// dies. The locks are those of the open file, not of the process: they go with its last descriptor, be that one which
/// a forked child inherited. Who gets that byte for himself knows that nobody is left, and starts the record afresh.
/// Joining and leaving is for one at a time, for whom the byte kGate is locked.
#ifndef QSBASE_SYNC_POSIX_SHAREDRECORD_H
#define QSBASE_SYNC_POSIX_SHAREDRECORD_H

#include <QSbase/sync/posix/futex.h>

#include <chrono>
#include <cstdint>
#include <string>

namespace qsbase::detail {

/// What the file begins with; the name follows.
struct EventRecord {
  std::uint64_t magic;
  std::uint64_t nameLength;
  std::uint32_t manualReset;
  FutexWord word;
};

/// The bytes of the file that users lock.
inline constexpr int kGate = 0;
inline constexpr int kLife = 1;

/// Where a record is: the file, its permissions, and the name that must stand in it.
struct SharedRecordPlace {
  std::string path;
  unsigned mode;
  std::string name;
};

/// One user of a record.
class SharedRecord {
 public:
  explicit SharedRecord(SharedRecordPlace place) : _place(std::move(place)) {}
  /// Leaves the record; the last user removes the file, if it is his.
  ~SharedRecord();
  SharedRecord(const SharedRecord&) = delete;
  SharedRecord& operator=(const SharedRecord&) = delete;

  /// Joins the users of the record, or starts it afresh with the flags given. Called once. False, with the reason in
  /// `errno`, when the file is refused (as OpenSharedFile() says), when it is none of these (EBADMSG), when somebody
  /// stays in the gate for longer than \p patience (EBUSY), or when there is no room.
  bool Join(bool manualReset, bool initialState, std::chrono::milliseconds patience = std::chrono::seconds(10));

  /// After Join(). Any thread may use its word; the rest stays as it is.
  EventRecord& Get() const { return *_record; }

 private:
  enum class Step { Done, Failed, Again };

  Step TryJoin(const std::string& fresh, std::chrono::milliseconds patience);
  bool Start(int descriptor, const std::string& fresh) const;
  bool Map(int descriptor);

  SharedRecordPlace _place;
  int _descriptor = -1;
  EventRecord* _record = nullptr;
};

}  // namespace qsbase::detail

#endif
