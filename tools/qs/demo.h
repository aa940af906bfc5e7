/// \file
/// qs demo: the main job on articles that a built-in origin serves.
#ifndef QS_DEMO_H
#define QS_DEMO_H

#include <string>

namespace qs {

struct DemoOptions {
  std::string articles;      ///< folder of the articles; empty: the installed ones, else those of the source tree
  std::string outputFolder;  ///< empty: a new folder in the system's temporary one
  int level = 0;
  bool quiet = false;
};

/// Serves every regular file of the folder but *.md, fetches all of them, prints log and table. An article whose name
/// begins with "damaged-" is expected to be reported. InitBase() has started the library.
/// \returns 0 when every article is as expected, 1 otherwise.
int RunDemo(const DemoOptions& options);

}  // namespace qs

#endif
