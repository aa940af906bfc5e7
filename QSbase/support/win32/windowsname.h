/// \file
/// The name of a Windows, made of what it tells of itself (internal).
#ifndef QSBASE_SUPPORT_WIN32_WINDOWSNAME_H
#define QSBASE_SUPPORT_WIN32_WINDOWSNAME_H

#include <string>

namespace qsbase::detail {

struct WindowsVersion {
  unsigned long major = 0;
  unsigned long minor = 0;
  unsigned long build = 0;
};

/// "Windows 10 Pro" and "22H2" with 10.0.19045 give "Windows 10 Pro 22H2 (10.0.19045)". Windows 11 has the product name
/// of its predecessor; its builds, from 22000 on, tell. Without a product "Windows", without a release none.
std::string WindowsName(std::string product, const std::string& release, const WindowsVersion& version);

}  // namespace qsbase::detail

#endif
