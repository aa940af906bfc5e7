// Lists of wildcard patterns beside fnmatch and RE2's set; the argument is the number of patterns.
#include <QSbase/text/namematcher.h>
#include <benchmark/benchmark.h>
#include <fnmatch.h>
#include <re2/re2.h>
#include <re2/set.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kNames = 100000;

const std::vector<std::string>& Words() {
  static const std::vector<std::string> words = {"report", "Draft",  "image", "holiday", "Backup", "invoice", "photo",
                                                 "notes",  "Letter", "song",  "archive", "README", "part",    "index"};
  return words;
}

const std::vector<std::string>& Endings() {
  static const std::vector<std::string> endings = {"txt", "LOG", "jpg", "doc", "zip", "rar", "PNG", "html", "c", "mp3"};
  return endings;
}

const std::vector<std::string>& Names() {
  static const std::vector<std::string> names = [] {
    std::mt19937 random(20261121);
    std::vector<std::string> made;
    for (std::size_t i = 0; i < kNames; ++i) {
      std::string name = Words()[random() % Words().size()];
      name += "_" + Words()[random() % Words().size()] + std::to_string(random() % 1000);
      made.push_back(name + "." + Endings()[random() % Endings().size()]);
    }
    return made;
  }();
  return names;
}

// As people write them: endings, beginnings, something within, numbered names. Most names match none of the first ten.
std::vector<std::string> Patterns(std::size_t count) {
  static const std::vector<std::string> first = {"*.bak",       "report*.doc", "*holiday*.jpg", "part???.rar", "*.tmp",
                                                 "README_*1.c", "~*",          "*letter*9.*",   "index.html",  "*.log"};
  std::vector<std::string> patterns;
  for (std::size_t i = 0; i < count; ++i) {
    const std::string& pattern = first[i % first.size()];
    patterns.push_back(i < first.size() ? pattern : std::to_string(i) + pattern);
  }
  return patterns;
}

std::string Joined(const std::vector<std::string>& patterns) {
  std::string list;
  for (const std::string& pattern : patterns) {
    list += pattern + ";";
  }
  return list;
}

int FnmatchIndex(const std::vector<std::string>& patterns, const std::string& name) {
  for (std::size_t i = 0; i < patterns.size(); ++i) {
    if (fnmatch(patterns[i].c_str(), name.c_str(), FNM_CASEFOLD) == 0) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

int MatcherIndex(const CNameMatcher& matcher, const std::string& name) {
  unsigned int index = 0;
  return matcher.MatchName(name, index) == 1 ? static_cast<int>(index) : -1;
}

RE2::Options Re2Options() {
  RE2::Options options(RE2::Latin1);
  options.set_case_sensitive(false);
  options.set_dot_nl(true);
  return options;
}

// All patterns as one machine, which tells every one that matches.
class Re2Set {
 public:
  explicit Re2Set(const std::vector<std::string>& patterns) : _set(Re2Options(), RE2::ANCHOR_BOTH) {
    for (const std::string& pattern : patterns) {
      char expression[256];
      PrepareWildcardString(pattern.c_str(), expression, sizeof expression, true);
      _set.Add(expression, nullptr);
    }
    _set.Compile();
  }

  int Index(const std::string& name) {
    _found.clear();
    return _set.Match(name, &_found) ? *std::min_element(_found.begin(), _found.end()) : -1;
  }

 private:
  RE2::Set _set;
  std::vector<int> _found;
};

template <typename Index>
void Compare(const CNameMatcher& matcher, Index index) {
  for (const std::string& name : Names()) {
    if (index(name) != MatcherIndex(matcher, name)) {
      throw std::runtime_error("another answer for " + name);
    }
  }
}

template <typename Index>
void Run(benchmark::State& state, Index index) {
  int matches = 0;
  for (auto _ : state) {
    for (const std::string& name : Names()) {
      matches += index(name) >= 0 ? 1 : 0;
    }
  }
  benchmark::DoNotOptimize(matches);
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(kNames));
}

std::size_t Count(const benchmark::State& state) { return static_cast<std::size_t>(state.range(0)); }

void Matcher(benchmark::State& state) {
  const CNameMatcher matcher(Joined(Patterns(Count(state))).c_str(), true);
  Run(state, [&](const std::string& name) { return MatcherIndex(matcher, name); });
}

// The same patterns, written as regular expressions.
void MatcherOfExpressions(benchmark::State& state) {
  std::vector<std::string> patterns;
  for (const std::string& pattern : Patterns(Count(state))) {
    char expression[256];
    PrepareWildcardString(pattern.c_str(), expression, sizeof expression, true);
    patterns.push_back(std::string("#") + expression);
  }
  const CNameMatcher matcher(Joined(patterns).c_str(), true);
  Compare(CNameMatcher(Joined(Patterns(Count(state))).c_str(), true),
          [&](const std::string& name) { return MatcherIndex(matcher, name); });
  Run(state, [&](const std::string& name) { return MatcherIndex(matcher, name); });
}

void Fnmatch(benchmark::State& state) {
  const std::vector<std::string> patterns = Patterns(Count(state));
  const auto index = [&](const std::string& name) { return FnmatchIndex(patterns, name); };
  Compare(CNameMatcher(Joined(patterns).c_str(), true), index);
  Run(state, index);
}

void Re2(benchmark::State& state) {
  const std::vector<std::string> patterns = Patterns(Count(state));
  Re2Set set(patterns);
  const auto index = [&](const std::string& name) { return set.Index(name); };
  Compare(CNameMatcher(Joined(patterns).c_str(), true), index);
  Run(state, index);
}

BENCHMARK(Matcher)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK(Fnmatch)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK(Re2)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK(MatcherOfExpressions)->Arg(1)->Arg(10);

}  // namespace
