/// \file
/// Start and stop of the library.
///
/// A program calls InitBase(1) once at its start and InitBase(2) once at its end. Logging, texts, codecs, files,
/// threads and locks need neither.
///
/// \code
/// int main() {
///   InitBase(1);
///   Run();
///   InitBase(2);
/// }
/// \endcode
#ifndef QSBASE_STARTUP_H
#define QSBASE_STARTUP_H

#include <string>

#include <QSbase/export.h>

/// Starts (phase 1) or stops (phase 2) what needs it, one after the other; any other phase does nothing.
///
/// Phase 1 calls InitQsThread, InitXML, InitQsSocket and InitQsInetHttp with 1, on the first call in the process only;
/// the others wait until that is over. When it throws (a log callback may), the next call tries again, all of it. Phase
/// 2 calls them with 2 in the opposite order, each time. Nothing starts the library again after that.
///
/// The string is ignored. Any thread may call; phase 2 is for when no other thread uses the library any more.
QSBASE_API void InitBase(int phase, const std::string& = std::string());

/// Start and stop of the threads, which need neither: does nothing.
QSBASE_API void InitQsThread(int phase);

#endif
