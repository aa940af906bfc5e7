#include <QSbase/sync/eventos.h>

#include <QSbase/cancelguard.h>
#include <QSbase/sync/posix/futexevent.h>
#include <QSbase/sync/posix/sharedfile.h>
#include <QSbase/sync/posix/sharedrecord.h>

#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace qsbase::detail {

namespace {

// What the word of an event lies in comes first, in a base of its own: the event refers to it.

struct OwnWord {
  FutexWord word;
};

class LocalEvent : private OwnWord, public FutexEvent {
 public:
  LocalEvent(bool manualReset, bool initialState) noexcept
      : OwnWord{{FreshEventWord(initialState)}}, FutexEvent(OwnWord::word, manualReset, FutexScope::Process) {}
};

struct JoinedRecord {
  std::unique_ptr<SharedRecord> record;
};

class MachineEvent : private JoinedRecord, public FutexEvent {
 public:
  explicit MachineEvent(std::unique_ptr<SharedRecord> joined) noexcept
      : JoinedRecord{std::move(joined)},
        FutexEvent(record->Get().word, record->Get().manualReset != 0, FutexScope::Machine) {}
};

SharedRecordPlace PlaceOf(std::string_view name, bool everyone) {
  constexpr std::string_view kLocal = "Local\\";
  const bool isGlobal = name.starts_with("Global\\");
  const std::string own(name.starts_with(kLocal) ? name.substr(kLocal.size()) : name);
  const SharedFileScope scope = isGlobal || everyone ? SharedFileScope::Machine : SharedFileScope::User;
  return {SharedFilePath("event", own, scope), everyone ? kMachineFileMode : kUserFileMode, own};
}

}  // namespace

std::unique_ptr<EventOs> EventOs::Make(bool manualReset, bool initialState) noexcept {
  return std::unique_ptr<EventOs>(new (std::nothrow) LocalEvent(manualReset, initialState));
}

std::unique_ptr<EventOs> EventOs::MakeNamed(bool manualReset, bool initialState, const char* name,
                                            bool everyone) noexcept try {
  const CancelGuard noCancellation;
  auto record = std::make_unique<SharedRecord>(PlaceOf(name, everyone));
  if (!record->Join(manualReset, initialState)) {
    return nullptr;
  }
  return std::make_unique<MachineEvent>(std::move(record));
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace qsbase::detail
