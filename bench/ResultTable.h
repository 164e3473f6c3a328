// ResultTable: the benchmark figures, each beside its baseline, as a Markdown table with the
// machine, the date and the command that reproduces it.
//
// Threading: used by the one thread that runs the benchmarks.
#ifndef ZORVIK_BENCH_RESULTTABLE_H_
#define ZORVIK_BENCH_RESULTTABLE_H_

#include <string>
#include <vector>

namespace zorvik {

class ResultTable {
 public:
  struct Row {
    std::string figure;
    double value;
    double baseline;
    std::string unit;
    std::string baselineName;
  };

  void add(Row row);
  // A line under the table (what limits a figure, how it was measured).
  void note(std::string text);

  // The table alone.
  std::string table() const;
  // The whole report: title, machine, date, command, table and notes.
  std::string report(const std::string& command) const;

 private:
  static std::string number(double value);
  static std::string ratio(double value, double baseline);
  static std::string machine();

  std::vector<Row> rows_;
  std::vector<std::string> notes_;
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_RESULTTABLE_H_
