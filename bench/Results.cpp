#include "Results.hpp"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>

#include "Statistics.hpp"

namespace bench {
namespace {

// Three figures mean something, if that.
std::string shown(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", value < 10 ? 2 : value < 100 ? 1 : 0, value);
  return text;
}

}  // namespace

void Results::add(const Figure &figure, const std::string &subject,
                  const std::vector<double> &rounds) const {
  const auto &[group, condition, quantity] = figure;
  std::printf("%-12s %-36s %-12s %-20s %7s  (%s to %s)\n", group.c_str(), condition.c_str(),
              subject.c_str(), quantity.c_str(), shown(median(rounds)).c_str(),
              shown(std::ranges::min(rounds)).c_str(), shown(std::ranges::max(rounds)).c_str());
  std::fflush(stdout);
  const std::unique_ptr<FILE, decltype(&std::fclose)> file(std::fopen(path_.c_str(), "a"),
                                                           std::fclose);
  check(file != nullptr, "the file of the results can't be written");
  std::fprintf(file.get(),
               R"({"group":"%s","condition":"%s","subject":"%s","quantity":"%s","rounds":[)",
               group.c_str(), condition.c_str(), subject.c_str(), quantity.c_str());
  for (std::size_t round = 0; round < rounds.size(); ++round) {
    std::fprintf(file.get(), "%s%.4f", round == 0 ? "" : ",", rounds[round]);
  }
  std::fprintf(file.get(), "]}\n");
}

void Results::addRatio(const Figure &figure, const std::vector<double> &bare,
                       const std::vector<double> &kfyd) const {
  std::vector<double> ratios;
  std::ranges::transform(kfyd, bare, std::back_inserter(ratios), std::divides());
  add(figure, "bare relay", bare);
  add(figure, "kfyd", kfyd);
  add(figure, "ratio", ratios);
}

}  // namespace bench
