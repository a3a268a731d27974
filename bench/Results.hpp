#pragma once

#include <string>
#include <vector>

namespace bench {

// What a row of numbers says: whom it is about, under which condition, and in what.
struct Figure {
  std::string group;      // a table of the report
  std::string condition;  // such as "8 clients"
  std::string quantity;   // with its unit, such as "p50, µs"
};

// Prints each figure as the median of the rounds and their spread, and appends it as a line of JSON
// to a file, from which the report is made.
class Results {
 public:
  explicit Results(std::string path) : path_(std::move(path)) {}

  // One number of each round.
  void add(const Figure &figure, const std::string &subject,
           const std::vector<double> &rounds) const;

  // Of kfyd and of the bare relay, whose rounds took turns, and the ratio of each two.
  void addRatio(const Figure &figure, const std::vector<double> &bare,
                const std::vector<double> &kfyd) const;

 private:
  std::string path_;
};

}  // namespace bench
