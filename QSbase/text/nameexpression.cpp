#include <QSbase/immortal.h>
#include <QSbase/killguard.h>
#include <QSbase/text/nameexpression.h>

#include <boost/regex.hpp>

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iterator>
#include <locale>
#include <new>
#include <stdexcept>
#include <vector>

namespace qsbase::detail {

namespace {

// How case is ignored is the system's matter, and Boost.Regex has it by either name.
#ifdef _WIN32
using SystemTraits = boost::w32_regex_traits<char>;
SystemTraits::locale_type CurrentLocale() { return boost::BOOST_REGEX_DETAIL_NS::w32_get_default_locale(); }
#else
using SystemTraits = boost::cpp_regex_traits<char>;
SystemTraits::locale_type CurrentLocale() { return std::locale(); }
#endif

// Those of the first locale are kept: Boost's own cache of them is gone when destructors run at the end of the process.
SystemTraits CurrentTraits() {
  static const Immortal<SystemTraits> first;
  return first.value.getloc() == CurrentLocale() ? first.value : SystemTraits();
}

class Traits : public SystemTraits {
 public:
  Traits() : SystemTraits(CurrentTraits()) {}
};

using Expression = boost::basic_regex<char, Traits>;

// Boost's own limit of steps grows with the squares of the lengths of expression and name, which is hours in the end,
// and it lets an expression that refers to itself take any memory. Its stack of states holds fewer positions than that.
constexpr std::int64_t kMaxSteps = 20'000'000;
constexpr std::int64_t kMaxPositions = 150'000;

// What one search has used up.
class SearchLimits {
 public:
  void AddPosition() noexcept {
    ++_positions;
    ++_steps;
  }
  void RemovePosition() noexcept { --_positions; }

  void CountStep() {
    if (++_steps > kMaxSteps || _positions > kMaxPositions) {
      GiveUp();
    }
  }

 private:
  // Once only: Boost moves positions about while it cleans up behind the exception.
  void GiveUp() {
    if (!_gaveUp) {
      _gaveUp = true;
      throw std::runtime_error("too complex");
    }
  }

  std::int64_t _steps = 0;
  std::int64_t _positions = 0;
  bool _gaveUp = false;
};

// A place in a name. A search cannot go on without moving, copying or assigning one, so they count for the limits.
// Construction never throws: containers of them may rely on that.
class Position {
 public:
  using iterator_category = std::random_access_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  Position() noexcept = default;
  Position(const char* at, SearchLimits* limits) noexcept : _at(at), _limits(limits) { Add(); }
  Position(const Position& other) noexcept : _at(other._at), _limits(other._limits) { Add(); }
  ~Position() { Remove(); }

  // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): it has the same limits, and stays where it is
  Position& operator=(const Position& other) {
    if (_limits != other._limits) {
      Remove();
      _limits = other._limits;
      Add();
    }
    _at = other._at;
    if (_limits != nullptr) {
      _limits->CountStep();
    }
    return *this;
  }

  reference operator*() const { return *_at; }
  pointer operator->() const { return _at; }
  reference operator[](difference_type n) const { return _at[n]; }

  Position& operator+=(difference_type n) {
    _at += n;
    _limits->CountStep();
    return *this;
  }
  Position& operator-=(difference_type n) { return *this += -n; }
  Position& operator++() { return *this += 1; }
  Position& operator--() { return *this -= 1; }
  Position operator++(int) {
    const Position before(*this);
    ++*this;
    return before;
  }
  Position operator--(int) {
    const Position before(*this);
    --*this;
    return before;
  }
  Position operator+(difference_type n) const { return Position(*this) += n; }
  Position operator-(difference_type n) const { return Position(*this) -= n; }
  difference_type operator-(const Position& other) const { return _at - other._at; }

  bool operator==(const Position& other) const { return _at == other._at; }
  auto operator<=>(const Position& other) const { return _at <=> other._at; }

 private:
  void Add() const noexcept {
    if (_limits != nullptr) {
      _limits->AddPosition();
    }
  }
  void Remove() const noexcept {
    if (_limits != nullptr) {
      _limits->RemovePosition();
    }
  }

  const char* _at = nullptr;
  SearchLimits* _limits = nullptr;
};

class BoostExpression final : public NameExpression {
 public:
  explicit BoostExpression(const char* expression)
      : _expression(expression, boost::regex_constants::perl | boost::regex_constants::icase) {}

  bool IsIn(std::string_view name) const noexcept override {
    try {
      SearchLimits limits;
      const Position begin(name.data(), &limits);
      const Position end(name.data() + name.size(), &limits);
      return boost::regex_search(begin, end, _expression, boost::match_single_line);
    } catch (const std::exception&) {
      return false;
    }
  }

 private:
  Expression _expression;
};

// ---- What Boost must not be asked to compile ----

// Boost's compiler calls itself for every "$", "\<" and "\>" that it meets before a character that a name must have,
// until the stack of the thread ends. Those in front of such a character, or of the end of an alternative, are no
// matter: a list of names with a "$" behind each stays a list.
constexpr std::size_t kMaxWaitingEnds = 1000;

bool IsWordCharacter(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

bool WaitsForMore(std::string_view rest) {
  if (rest.empty() || IsWordCharacter(rest.front())) {
    return false;
  }
  const std::size_t end = std::min(rest.find_first_not_of(')'), rest.size());
  return end == rest.size() || rest[end] != '|';
}

bool HasTooManyEnds(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < text.size() && count <= kMaxWaitingEnds; ++i) {
    const bool isEscape = text[i] == '\\' && i + 1 < text.size();
    i += isEscape ? 1 : 0;
    const bool isEnd = isEscape ? text[i] == '<' || text[i] == '>' : text[i] == '$';
    count += isEnd && WaitsForMore(text.substr(i + 1)) ? 1 : 0;
  }
  return count > kMaxWaitingEnds;
}

// Boost measures a look-behind along every way through it, by calling itself: "(?<=(a|b)(a|b))" has four. It has this
// many at most.
constexpr std::size_t kMaxWays = 1000;

// Counts the ways through the look-behind at the beginning of a text. Where the text does not show what is a group and
// what is not, as in sets, quotations and comments, each "|" up to the end of the text is taken to double them.
class LookBehindWays {
 public:
  explicit LookBehindWays(std::string_view text) : _text(text) { Walk(); }

  bool AreTooMany() const { return _tooMany; }
  /// Of what was counted.
  std::size_t Length() const { return _at; }

 private:
  struct Group {
    std::size_t alternatives = 0;  ///< The ways through those before the current one.
    std::size_t current = 1;
  };

  void Walk() {
    for (bool isOpen = true; isOpen && _at < _text.size() && !_tooMany; ++_at) {
      isOpen = Step();
    }
  }

  // False behind the end of the look-behind.
  bool Step() {
    switch (_text[_at]) {
      case '(':
        _groups.emplace_back();
        return true;
      case ')':
        Close();
        return !_groups.empty();
      case '|':
        _groups.back().alternatives += _groups.back().current;
        _groups.back().current = 1;
        Check(_groups.back().alternatives);
        return true;
      default:
        if (!IsPlain()) {
          CountRoughly();
          return false;
        }
        _at += _text[_at] == '\\' ? 1 : 0;
        return true;
    }
  }

  void Close() {
    const std::size_t ways = _groups.back().alternatives + _groups.back().current;
    Check(ways);
    _groups.pop_back();
    if (!_groups.empty()) {
      _groups.back().current *= ways;
      Check(_groups.back().current);
    }
  }

  bool IsPlain() const {
    const char next = _at + 1 < _text.size() ? _text[_at + 1] : '\0';
    switch (_text[_at]) {
      case '[':
      case '#':
        return false;
      case '\\':
        return next != 'Q';
      case '?':
        return _text[_at - 1] != '(' || std::string_view(":=!<>").find(next) != std::string_view::npos;
      default:
        return true;
    }
  }

  // With that, all that follows is counted.
  void CountRoughly() {
    constexpr std::ptrdiff_t most = 9;  // doublings within kMaxWays
    _tooMany = std::count(_text.begin(), _text.end(), '|') > most;
    _at = _text.size();
  }

  void Check(std::size_t ways) { _tooMany = _tooMany || ways > kMaxWays; }

  std::string_view _text;
  std::vector<Group> _groups;
  std::size_t _at = 0;
  bool _tooMany = false;
};

bool HasTooManyWays(std::string_view text) {
  for (std::size_t at = text.find("(?<"); at != std::string_view::npos; at = text.find("(?<", at)) {
    const char kind = at + 3 < text.size() ? text[at + 3] : '\0';
    if (kind != '=' && kind != '!') {
      at += 3;  // a name
      continue;
    }
    const LookBehindWays ways(text.substr(at));
    if (ways.AreTooMany()) {
      return true;
    }
    at += ways.Length();
  }
  return false;
}

}  // namespace

std::unique_ptr<const NameExpression> NameExpression::Compile(const char* expression) {
  if (HasTooManyEnds(expression) || HasTooManyWays(expression)) {
    return nullptr;
  }
  const KillGuard guard;  // the tables of a locale are shared under a lock of Boost's
  try {
    return std::make_unique<BoostExpression>(expression);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    return nullptr;
  }
}

CharMap NameFoldMap() {
  const KillGuard guard;
  const Traits traits;
  CharMap map{};
  for (std::size_t c = 0; c < map.size(); ++c) {
    map[c] = static_cast<unsigned char>(traits.translate_nocase(static_cast<char>(static_cast<unsigned char>(c))));
  }
  return map;
}

}  // namespace qsbase::detail
