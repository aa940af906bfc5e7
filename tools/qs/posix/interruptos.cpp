#include "../interruptos.h"

#include <csignal>

namespace qs {

void NoteSignals(SignalNote note) {
  std::signal(SIGINT, note);
  std::signal(SIGTERM, note);
}

}  // namespace qs
