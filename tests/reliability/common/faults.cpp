#include <reliability/common/faults.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <utility>
#include <vector>

#include <reliability/common/faultpoint.h>

namespace qsbase::testing {

namespace {

// The fault in force.
constinit std::atomic<int> plannedKind{-1};
constinit std::atomic<int> plannedError{0};
constinit std::atomic<unsigned> plannedFirst{0};
constinit std::atomic<unsigned> plannedCount{0};
constinit std::atomic<unsigned> callsMade{0};
constinit std::atomic<unsigned> callsHit{0};

constinit std::atomic<long> liveBlocks{0};

bool IsInForce(FaultKind kind) {
  return plannedKind.load(std::memory_order_acquire) == static_cast<int>(kind) && SuspendedHere() == 0;
}

// Counts the call; whether it is hit.
bool IsHit() {
  const unsigned call = callsMade.fetch_add(1) + 1;
  const unsigned first = plannedFirst.load();
  if (first == 0 || call < first || call - first >= plannedCount.load()) {
    return false;
  }
  if (callsHit.fetch_add(1) == 0) {
    TellOfHit();
  }
  return true;
}

constexpr std::array<std::pair<const char*, FaultKind>, kFaultKinds.size()> kNames = {{
    {"open", FaultKind::Open},
    {"read", FaultKind::Read},
    {"write", FaultKind::Write},
    {"flush", FaultKind::Flush},
    {"close", FaultKind::Close},
    {"rename", FaultKind::Rename},
    {"stat", FaultKind::Stat},
    {"unlink", FaultKind::Unlink},
    {"makefolder", FaultKind::MakeFolder},
    {"attribute", FaultKind::Attribute},
    {"allocate", FaultKind::Allocate},
    {"connect", FaultKind::Connect},
    {"send", FaultKind::Send},
    {"receive", FaultKind::Receive},
}};

constexpr std::array<std::pair<const char*, int>, 11> kErrors = {{
    {"short", kShort},
    {"EACCES", EACCES},
    {"ECONNREFUSED", ECONNREFUSED},
    {"ECONNRESET", ECONNRESET},
    {"EINTR", EINTR},
    {"EIO", EIO},
    {"EMFILE", EMFILE},
    {"ENOENT", ENOENT},
    {"ENOMEM", ENOMEM},
    {"ENOSPC", ENOSPC},
    {"ETIMEDOUT", ETIMEDOUT},
}};

template <class Table, class Value>
bool LookUp(const Table& table, const std::string& name, Value& value) {
  for (const auto& [known, meaning] : table) {
    if (name == known) {
      value = meaning;
      return true;
    }
  }
  return false;
}

bool ParseNumber(const std::string& text, unsigned& number) {
  char* end = nullptr;
  number = static_cast<unsigned>(std::strtoul(text.c_str(), &end, 10));
  return !text.empty() && *end == '\0';
}

bool ParseError(const std::string& text, int& error) {
  unsigned number = 0;
  if (ParseNumber(text, number)) {
    error = static_cast<int>(number);
    return true;
  }
  return LookUp(kErrors, text, error);
}

std::vector<std::string> Pieces(const std::string& text) {
  std::vector<std::string> pieces(1);
  for (const char c : text) {
    if (c == ':') {
      pieces.emplace_back();
    } else {
      pieces.back() += c;
    }
  }
  return pieces;
}

}  // namespace

bool FailsNow(FaultKind kind, bool mayBeInterrupted) noexcept {
  if (!IsInForce(kind)) {
    return false;
  }
  const int error = plannedError.load();
  if (error == kShort || (error == EINTR && !mayBeInterrupted) || !IsHit()) {
    return false;
  }
  SetError(error);
  return true;
}

std::size_t Allowed(FaultKind kind, std::size_t size) noexcept {
  if (!IsInForce(kind)) {
    return size;
  }
  const int error = plannedError.load();
  if ((error == kShort && size < 2) || !IsHit()) {
    return size;
  }
  if (error == kShort) {
    return size / 2;
  }
  SetError(error);
  return kTransferFails;
}

void CountBlock(long change) noexcept { liveBlocks.fetch_add(change, std::memory_order_relaxed); }

const char* NameOf(FaultKind kind) {
  for (const auto& [name, known] : kNames) {
    if (known == kind) {
      return name;
    }
  }
  return "";
}

FaultInjection::FaultInjection(const Fault& fault) {
  Install();
  if (plannedKind.load() != -1) {
    throw std::logic_error("a fault is in force already");
  }
  plannedError = fault.error;
  plannedFirst = fault.first;
  plannedCount = fault.count;
  callsMade = 0;
  callsHit = 0;
  plannedKind.store(static_cast<int>(fault.kind), std::memory_order_release);
}

FaultInjection::~FaultInjection() { plannedKind = -1; }

unsigned FaultInjection::Calls() const { return callsMade.load(); }

unsigned FaultInjection::Hits() const { return callsHit.load(); }

NoFaults::NoFaults() { ChangeSuspended(1); }

NoFaults::~NoFaults() { ChangeSuspended(-1); }

long LiveBlocks() { return liveBlocks.load(); }

bool ParseFault(const std::string& text, Fault& fault) {
  const std::vector<std::string> pieces = Pieces(text);
  if (pieces.size() < 3 || pieces.size() > 4 || !LookUp(kNames, pieces[0], fault.kind) ||
      !ParseError(pieces[1], fault.error) || !ParseNumber(pieces[2], fault.first)) {
    return false;
  }
  fault.count = kForever;
  return pieces.size() == 3 ? (fault.count = 1, true) : pieces[3] == "forever" || ParseNumber(pieces[3], fault.count);
}

}  // namespace qsbase::testing
