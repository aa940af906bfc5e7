/// \file
/// A program run as a child, with its output kept in a file. Stopped at the end, whatever the test does.
#ifndef QSBASE_TESTS_INTEGRATION_COMMON_CHILDPROCESS_H
#define QSBASE_TESTS_INTEGRATION_COMMON_CHILDPROCESS_H

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <common/tempdir.h>

namespace qsbase::testing {

class ChildProcess {
 public:
  /// Starts `command` (looked up in PATH and the system folders); what it prints goes to the file `output`.
  ChildProcess(const std::vector<std::string>& command, std::string output) : _output(std::move(output)) {
    std::vector<std::string> words = command;
    std::vector<char*> arguments;
    for (std::string& word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const char* path = std::getenv("PATH");
    const std::string search = std::string(path != nullptr ? path : "/usr/bin:/bin") + ":/usr/sbin:/sbin";
    setenv("PATH", search.c_str(), 1);
    const pid_t parent = getpid();
    _pid = fork();
    if (_pid < 0) {
      throw std::runtime_error("fork failed");
    }
    if (_pid == 0) {
      Become(arguments.data(), parent);
    }
  }

  ~ChildProcess() { Stop(); }

  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool Running() {
    if (_pid > 0 && waitpid(_pid, &_status, WNOHANG) == _pid) {
      _pid = 0;
    }
    return _pid > 0;
  }

  /// Waits for the end; the exit code, or 128 + the signal.
  int Wait() {
    if (_pid > 0) {
      waitpid(_pid, &_status, 0);
      _pid = 0;
    }
    return WIFEXITED(_status) ? WEXITSTATUS(_status) : 128 + WTERMSIG(_status);
  }

  /// Asks for the end, and insists after five seconds.
  void Stop() {
    if (!Running()) {
      return;
    }
    kill(_pid, SIGTERM);
    for (int tries = 0; tries < 500 && Running(); ++tries) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (Running()) {
      kill(_pid, SIGKILL);
      Wait();
    }
  }

  std::string Output() const { return TempDir::Read(_output); }

 private:
  // Only what is safe between fork and exec. The child never outlives the test.
  [[noreturn]] void Become(char* const* arguments, pid_t parent) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
      _exit(126);
    }
    const int file = open(_output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    execvp(arguments[0], arguments);
    static const char text[] = "cannot be started: is it installed?\n";
    _exit(write(STDERR_FILENO, text, sizeof text - 1) > 0 ? 127 : 125);
  }

  std::string _output;
  pid_t _pid = 0;
  int _status = 0;
};

/// Runs a tool to its end; throws with what it printed when it fails.
inline void RunTool(const TempDir& dir, const std::vector<std::string>& command) {
  ChildProcess tool(command, dir / "tool.out");
  const int code = tool.Wait();
  if (code != 0) {
    throw std::runtime_error(command.front() + " failed (" + std::to_string(code) + "): " + tool.Output());
  }
}

}  // namespace qsbase::testing

#endif
