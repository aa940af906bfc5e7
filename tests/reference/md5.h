/// \file
/// The slow reference of MD5; see result.h.
#ifndef QSBASE_TESTS_REFERENCE_MD5_H
#define QSBASE_TESTS_REFERENCE_MD5_H

#include <string>
#include <string_view>

namespace qsbase::reference {

/// The 16 bytes of the digest, as RFC 1321 describes it.
std::string Md5(std::string_view data);

}  // namespace qsbase::reference

#endif
