/// \file
/// The bounds of every operation on a text from outside: memory, and how time grows.
#ifndef QSBASE_FUZZ_BOUNDS_H
#define QSBASE_FUZZ_BOUNDS_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace qsbase::fuzz {

/// Does its work on a text and returns how many bytes of result it gave.
using Operation = std::function<std::size_t(const std::string& text)>;

/// What an operation may hold beyond its text and its result.
constexpr std::size_t kRoom = std::size_t{1} << 20;

/// Of the longest text that DemandBounds makes.
constexpr std::size_t kLongest = std::size_t{2} << 20;

/// Ends the program when the operation, on the text,
/// - takes more memory at once, beyond the text itself, than text, result and 1 MiB have together;
///
/// and for some texts (for every one without libFuzzer) also when it, on the text repeated,
/// - takes more than that on `longest` bytes;
/// - needs more than 24 times as long for a quarter of that as for a thirty-second part, which is 8 times as much text:
///   a linear operation needs 8 times as long, a quadratic one 64 times. Processor time counts, the least of several
///   measurements, and only with the environment variable QSBASE_FUZZ_TIME: other programs of a loaded machine make
///   even that vary. Without it, the time limit of the test, or of libFuzzer, has to do.
///
/// An operation that is slow by nature gets a smaller `longest`.
void DemandBounds(const char* what, std::string_view text, const Operation& operation, std::size_t longest = kLongest);

/// The text, repeated until it has so many bytes; one blank for an empty one.
std::string Repeated(std::string_view text, std::size_t size);

}  // namespace qsbase::fuzz

#endif
