#include <QSbase/sync/eventos.h>

#include <QSbase/sync/posix/futexevent.h>

#include <new>

namespace qsbase::detail {

namespace {

/// The word in a base of its own, so that it is there before the event that refers to it.
struct OwnWord {
  FutexWord word;
};

class LocalEvent : private OwnWord, public FutexEvent {
 public:
  LocalEvent(bool manualReset, bool initialState) noexcept
      : OwnWord{{FreshEventWord(initialState)}}, FutexEvent(OwnWord::word, manualReset, FutexScope::Process) {}
};

}  // namespace

std::unique_ptr<EventOs> EventOs::Make(bool manualReset, bool initialState) noexcept {
  return std::unique_ptr<EventOs>(new (std::nothrow) LocalEvent(manualReset, initialState));
}

}  // namespace qsbase::detail
