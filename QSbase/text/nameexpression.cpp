#include <QSbase/killguard.h>
#include <QSbase/text/nameexpression.h>

#include <boost/regex.hpp>

#include <compare>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iterator>
#include <new>
#include <stdexcept>

namespace qsbase::detail {

namespace {

// How case is ignored is the system's matter, and Boost.Regex has it by either name.
#ifdef _WIN32
using Traits = boost::w32_regex_traits<char>;
#else
using Traits = boost::cpp_regex_traits<char>;
#endif

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

}  // namespace

std::unique_ptr<const NameExpression> NameExpression::Compile(const char* expression) {
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
