/// \file
/// The system's part of an event (internal). Twins: posix/eventos.cpp, win32/eventos.cpp.
///
/// Any thread may call; calls that change the event come one at a time within the process. Destroying an event is for
/// the last who uses it.
#ifndef QSBASE_SYNC_EVENTOS_H
#define QSBASE_SYNC_EVENTOS_H

#include <QSbase/sync/event.h>

#include <memory>

namespace qsbase::detail {

class EventOs {
 public:
  /// Null when the system makes none.
  static std::unique_ptr<EventOs> Make(bool manualReset, bool initialState) noexcept;

  /// The event that every process of the machine finds under \p name (not null). It is made when nobody has it, by
  /// \p everyone for all users, else for the calling one; the flags of one that is there already stay.
  static std::unique_ptr<EventOs> MakeNamed(bool manualReset, bool initialState, const char* name,
                                            bool everyone) noexcept;

  EventOs() = default;
  virtual ~EventOs() = default;
  EventOs(const EventOs&) = delete;
  EventOs& operator=(const EventOs&) = delete;

  /// Releases everyone who waits at this moment (manual reset) or the first who comes by (auto reset).
  virtual void Set() noexcept = 0;
  virtual void Reset() noexcept = 0;

  /// At least \p timeoutMs milliseconds by the steady clock before it gives Timeout; no limit when negative.
  virtual WaitResult Wait(int timeoutMs) noexcept = 0;
};

}  // namespace qsbase::detail

#endif
