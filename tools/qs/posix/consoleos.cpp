#include "../consoleos.h"

#include <unistd.h>

namespace qs {

bool IsTerminal(std::FILE* stream) { return isatty(fileno(stream)) == 1; }

void SetBinaryMode(std::FILE*) {}

Utf8Console::Utf8Console() = default;
Utf8Console::~Utf8Console() = default;

}  // namespace qs
