#include <QSbase/errors.h>

#include <QSbase/errorsos.h>
#include <QSbase/lasterrorguard.h>

#include <cstdio>
#include <exception>

ExBase::ExBase(const std::string& message) : _message(message) {}
ExBase::ExBase(const ExBase& other) = default;
ExBase& ExBase::operator=(const ExBase& other) = default;
ExBase::~ExBase() = default;

std::string ExBase::GetErrorText() const { return _message; }

void ExBase::PrependContext(const std::string& context) { _message = context + " >>> " + _message; }

ExAssert::ExAssert(const std::string& message) : ExBase(message) {}
ExAssert::ExAssert(const ExAssert& other) = default;
ExAssert& ExAssert::operator=(const ExAssert& other) = default;
ExAssert::~ExAssert() = default;

ExInvalidRange::ExInvalidRange(const std::string& message) : ExAssert(message) {}
ExInvalidRange::ExInvalidRange(const ExInvalidRange& other) = default;
ExInvalidRange& ExInvalidRange::operator=(const ExInvalidRange& other) = default;
ExInvalidRange::~ExInvalidRange() = default;

ExPrecondition::ExPrecondition(const std::string& message) : ExAssert(message) {}
ExPrecondition::ExPrecondition(const ExPrecondition& other) = default;
ExPrecondition& ExPrecondition::operator=(const ExPrecondition& other) = default;
ExPrecondition::~ExPrecondition() = default;

ExMemoryAllocation::ExMemoryAllocation(const std::string& what) : ExBase("Memory allocation error: " + what) {}
ExMemoryAllocation::ExMemoryAllocation(const ExMemoryAllocation& other) = default;
ExMemoryAllocation& ExMemoryAllocation::operator=(const ExMemoryAllocation& other) = default;
ExMemoryAllocation::~ExMemoryAllocation() = default;

namespace {

/// The system's text without its last line break; empty when there is none or it cannot be had.
std::string SystemText(int code) {
  std::string text;
  try {
    text = qsbase::detail::OsErrorText(code);
    const std::size_t lineBreak = text.rfind("\r\n");
    if (lineBreak != std::string::npos) {
      text.erase(lineBreak, 2);
    }
  } catch (const std::exception&) {
    // The caller falls back on the number.
  }
  return text;
}

}  // namespace

int QsGetLastError() { return qsbase::detail::OsGetLastError(); }

void QsSetLastError(int code) { qsbase::detail::OsSetLastError(code); }

std::string QsErrorMessage(int code) {
  const qsbase::detail::LastErrorGuard keepLastError;
  std::string text = SystemText(code);
  if (!text.empty()) {
    return text;
  }
  char fallback[40];
  std::snprintf(fallback, sizeof fallback, "<unknown error: 0x%x>", static_cast<unsigned int>(code));
  return fallback;
}
