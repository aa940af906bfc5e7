#include <QSbase/simd/level.h>

#include "coders.h"

namespace qsbase::benchmarks {

void AddKernels(std::vector<Contestant>&) {}

}  // namespace qsbase::benchmarks
