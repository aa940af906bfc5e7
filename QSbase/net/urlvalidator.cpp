// The check of a URL against one expression.
#include <QSbase/net/url.h>

#include <QSbase/immortal.h>
#include <QSbase/killguard.h>

#include <boost/regex.hpp>

#include <algorithm>
#include <cstddef>
#include <exception>
#include <locale>

using namespace qsbase::detail;

namespace {

// Fixed traits and the classic locale: the same letters and digits for every process on every target.
using Expression = boost::basic_regex<char, boost::regex_traits<char, boost::cpp_regex_traits<char>>>;

constexpr char kExpression[] =
    R"(^(?:https?://(?:(?:(?:(?:(?:[a-z@\d](?:(?:[a-z@\d]|-)*[a-z@\d])?)\.)*(?:[a-z@\d](?:(?:[a-z@\d]|-)*[a-z@\d])?)))"
    R"(|(?:(?:\d+)(?:\.(?:\d+)){3}))(?::(?:\d+))?))"
    R"((?:/(?:(?:(?:(?:[a-z\d$\-_.+!*'(),]|(?:%[a-f\d]{2}))|[;:@&=])*))"
    R"((?:/(?:(?:(?:[a-z\d$\-_.+!*'(),]|(?:%[a-f\d]{2}))|[;:@&=])*))*))"
    R"((?:\?(?:(?:(?:[a-z\d$\-_.+!*'(),]|(?:%[a-f\d]{2}))|[;:@&=])*))?)?)$)";
static_assert(sizeof kExpression == 346 + 1);

struct Compiled {
  Compiled() {
    expression.imbue(std::locale::classic());
    expression.assign(kExpression, boost::regex_constants::perl | boost::regex_constants::icase);
  }

  Expression expression;
};

const Expression& UrlExpression() {
  const KillGuard guard;  // a static variable is locked while it is made
  static const Immortal<Compiled> compiled;
  return compiled.value.expression;
}

// The URL with a path of one segment. It is valid just when the URL is, as a "-" may stand wherever a further "/" of
// the path may. But Boost's time grows with the square of the number of segments.
std::string WithOneSegment(std::string url) {
  const std::size_t host = url.find("://");
  const std::size_t path = host == std::string::npos ? host : url.find('/', host + 3);
  if (path != std::string::npos) {
    const auto at = [&url](std::size_t offset) { return url.begin() + static_cast<std::ptrdiff_t>(offset); };
    std::replace(at(path + 1), at(std::min(url.find('?', path), url.size())), '/', '-');
  }
  return url;
}

}  // namespace

bool QsIsValidURL(const std::string& url) {
  try {
    const std::string text = WithOneSegment(url);
    return boost::regex_match(text.data(), text.data() + text.size(), UrlExpression());
  } catch (const std::exception&) {
    return false;
  }
}
