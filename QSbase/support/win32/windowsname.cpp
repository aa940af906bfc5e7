#include <QSbase/support/win32/windowsname.h>

#include <cstddef>
#include <string_view>

namespace qsbase::detail {

std::string WindowsName(std::string product, const std::string& release, const WindowsVersion& version) {
  constexpr std::string_view kTen = "Windows 10";
  constexpr unsigned long kFirstOfEleven = 22000;
  const std::size_t ten = product.find(kTen);
  if (version.build >= kFirstOfEleven && ten != std::string::npos) {
    product.replace(ten, kTen.size(), "Windows 11");
  }
  std::string name = product.empty() ? "Windows" : std::move(product);
  if (!release.empty()) {
    name += " " + release;
  }
  return name + " (" + std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
         std::to_string(version.build) + ")";
}

}  // namespace qsbase::detail
