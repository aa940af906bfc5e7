/// \file
/// Matchers of the tests' own.
#ifndef QSBASE_TESTS_COMMON_MATCHERS_H
#define QSBASE_TESTS_COMMON_MATCHERS_H

#include <gmock/gmock.h>

#include <regex>
#include <string>

namespace qsbase::testing {

/// The whole text matches the regular expression (ECMAScript). The matchers of GoogleTest know neither sets nor counts
/// on Windows.
MATCHER_P(MatchesPattern, pattern, std::string(negation ? "does not match " : "matches ") + pattern) {
  return std::regex_match(std::string(arg), std::regex(pattern));
}

}  // namespace qsbase::testing

#endif
