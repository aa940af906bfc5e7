#include "kills_scene.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <signal.h>
#include <sys/ptrace.h>
#include <unistd.h>

namespace kills {

namespace fs = std::filesystem;

void Scene::Step(unsigned track, std::uint64_t number, const std::function<void(unsigned, std::uint64_t)>& step) const {
  shared.begun[track] = number;
  step(track, number);
  shared.done[track] = number;
}

void Scene::RunInThreads(unsigned count, const std::function<void(unsigned, std::uint64_t)>& step) const {
  if (manner == Manner::Once) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    kill(getpid(), SIGSTOP);
    Step(0, 1, step);
    kill(getpid(), SIGSTOP);
    _exit(0);
  }
  shared.ready = true;
  std::vector<std::thread> threads;
  const auto repeat = [&](unsigned track) {
    for (std::uint64_t number = 1;; ++number) {
      Step(track, number, step);
    }
  };
  for (unsigned track = 1; track < count; ++track) {
    threads.emplace_back(repeat, track);
  }
  repeat(0);
}

void Scene::Run(const std::function<void(std::uint64_t)>& step) const {
  RunInThreads(1, [&](unsigned, std::uint64_t number) { step(number); });
}

void Scene::Fail(const std::string& text) const {
  const std::string line = text.substr(0, 300) + "\n";
  const auto length = static_cast<unsigned>(line.size());
  const unsigned at = shared.textLength.fetch_add(length);
  if (at + length < shared.text.size()) {
    std::memcpy(shared.text.data() + at, line.data(), length);
  }
}

bool Scene::Expect(bool isRight, const std::string& text) const {
  if (!isRight) {
    Fail(text);
  }
  return isRight;
}

bool Await(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return condition();
    }
    usleep(50);
  }
  return true;
}

std::string Content(std::uint64_t number) {
  std::string content = "content " + std::to_string(number) + "\n";
  const std::size_t size = 100 + number * 37 % 101 * 2000;
  content.reserve(size);
  for (std::uint64_t state = number; content.size() < size;
       state = state * 6364136223846793005U + 1442695040888963407U) {
    content.push_back(static_cast<char>(state >> 56U));
  }
  return content;
}

std::int64_t NumberIn(const std::string& path) {
  if (!fs::exists(path)) {
    return kNoFile;
  }
  const std::string content = ReadFile(path);
  std::istringstream stream(content.substr(0, 40));
  std::string word;
  std::int64_t number = kTorn;
  if (!(stream >> word >> number) || number < 0 || content != Content(static_cast<std::uint64_t>(number))) {
    return kTorn;
  }
  return number;
}

std::string ReadFile(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::vector<std::string> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, ignored)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool IsTemporaryOf(const std::string& name, const std::string& other) {
  return name.size() > other.size() + 1 && name.compare(0, other.size() + 1, other + ".") == 0 &&
         name.find_first_not_of("0123456789", other.size() + 1) == std::string::npos;
}

}  // namespace kills
