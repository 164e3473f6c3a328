#include "Samples.h"

#include <algorithm>
#include <cmath>

namespace zorvik {

void Samples::merge(const Samples& other) {
  values_.insert(values_.end(), other.values_.begin(), other.values_.end());
}

double Samples::percentile(double p) const {
  if (values_.empty()) return 0;
  std::vector<double> sorted = values_;
  const size_t rank = static_cast<size_t>(std::ceil(p / 100 * static_cast<double>(sorted.size())));
  const size_t index = std::min(sorted.size() - 1, rank == 0 ? 0 : rank - 1);
  std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(index),
                   sorted.end());
  return sorted[index];
}

}  // namespace zorvik
