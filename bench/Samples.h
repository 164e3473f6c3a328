// Samples: measured values of one figure (latencies, lateness), summarised by percentiles.
//
// Threading: not shared; each measuring thread fills its own and merges it afterwards.
#ifndef ZORVIK_BENCH_SAMPLES_H_
#define ZORVIK_BENCH_SAMPLES_H_

#include <cstddef>
#include <vector>

namespace zorvik {

class Samples {
 public:
  void add(double value) { values_.push_back(value); }
  void merge(const Samples& other);
  size_t size() const { return values_.size(); }
  bool empty() const { return values_.empty(); }

  // The nearest-rank percentile (0 < p <= 100); 0 when there are no samples.
  double percentile(double p) const;
  double median() const { return percentile(50); }
  double p99() const { return percentile(99); }

 private:
  std::vector<double> values_;
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_SAMPLES_H_
