/// \file
/// What the benchmark of the coders consists of: jobs, and who does them. The driver is coders.py.
#ifndef QSBASE_BENCHMARKS_CODERS_CODERS_H
#define QSBASE_BENCHMARKS_CODERS_CODERS_H

#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qsbase::benchmarks {

/// What is coded: random bytes; mail text; the same in ASCII.
enum class Data { kRandom, kMail, kAscii };
std::string MakeData(Data kind, std::size_t size);

/// A job is known by its name, which is also the first part of a measurement's name. Rates are per byte of the data,
/// whichever way it goes.
struct Job {
  const char* name;
  Data data;
  std::string (*text)(const std::string& data);  ///< The coded form, by the library's interface.
  bool decodes;                                  ///< From the text to the data; otherwise the other way.
};
const std::vector<Job>& Jobs();

/// Where a coder leaves what it made: in the room that stands ready, or in memory of its own.
class Output {
 public:
  explicit Output(std::size_t room) : _room(room, '\0') {}
  ~Output() { Release(); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  char* Room() { return _room.data(); }
  unsigned char* Bytes() { return reinterpret_cast<unsigned char*>(_room.data()); }
  std::size_t RoomSize() const { return _room.size(); }
  void SetLength(std::size_t length, std::size_t from = 0) { _text = {_room.data() + from, length}; }

  /// Takes memory that `release` gives back.
  void Take(char* data, std::size_t length, void (*release)(char*)) {
    Release();
    _taken = data;
    _release = release;
    _text = {data, length};
  }
  void Release() {
    if (_taken != nullptr) {
      _release(_taken);
    }
    _taken = nullptr;
    _text = {};
  }
  std::string_view Text() const { return _text; }

 private:
  std::string _room;
  std::string_view _text;
  char* _taken = nullptr;
  void (*_release)(char*) = nullptr;
};

/// How far an output has to agree with that of the library's scalar kernels.
enum class Agreement {
  kEqual,          ///< Byte by byte.
  kButBreaks,      ///< Without CR and LF.
  kBack,           ///< The library decodes it to the same data.
  kBackButBreaks,  ///< The same, without CR and LF.
};

struct Contestant {
  const char* job;
  std::string name;
  Agreement agreement;
  std::function<void(std::string_view input, Output& output)> run;
};

/// The library through its interface, at its highest level and at each one.
void AddInterface(std::vector<Contestant>& all);
/// The library's kernels at each level, into memory that stands ready.
void AddKernels(std::vector<Contestant>& all);
/// Other libraries.
void AddPeers(std::vector<Contestant>& all);

/// For a coder that works in place: the input in the room, once. What such a coder has done it finds done then, which
/// is the same work for a table or for vectors.
inline void PrepareInPlace(std::string_view input, Output& output) {
  if (output.Text().size() != input.size()) {
    std::memcpy(output.Room(), input.data(), input.size());
    output.SetLength(input.size());
  }
}

/// The name that the environment variable has for each level.
inline constexpr const char* kLevelNames[] = {"scalar", "sse4", "avx2", "avx512"};

inline const unsigned char* Bytes(std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); }

}  // namespace qsbase::benchmarks

#endif
