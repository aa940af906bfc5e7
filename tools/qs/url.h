/// \file
/// qs url: shows the parts and the normal form of URLs, and tells whether they are valid.
#ifndef QS_URL_H
#define QS_URL_H

#include <string>
#include <vector>

namespace qs {

/// What qs url writes about one text: lines of a name and a value, of what the text has only.
std::string DescribeUrl(const std::string& url);

/// Writes it for each text. The exit code is that of success when all are valid.
int RunUrl(const std::vector<std::string>& urls);

}  // namespace qs

#endif
