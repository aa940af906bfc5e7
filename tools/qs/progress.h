/// \file
/// Shows on standard error how a transfer goes: one line that rewrites itself on a terminal, plain lines elsewhere.
/// One thread uses an object.
#ifndef QS_PROGRESS_H
#define QS_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

namespace qs {

class Progress {
 public:
  /// \param quiet shows nothing at all.
  explicit Progress(bool quiet);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// A transfer begins; title stands in front of its figures.
  void Begin(const std::string& title);
  /// So many bytes are there, of so many when that is known (else 0). Shows a few of the calls only.
  void Update(std::uint64_t bytes, std::uint64_t total);
  /// So many percent are done. Shows a few of the calls only.
  void UpdatePercent(int percent);
  /// The transfer is over: the terminal's line is erased.
  void End();

 private:
  void ShowSometimes(const std::string& figures);
  void Show(const std::string& text);

  bool _quiet;
  bool _terminal;
  std::string _title;
  std::size_t _shown = 0;
  std::chrono::steady_clock::time_point _lastTime;
};

}  // namespace qs

#endif
