#pragma once

#include <gtest/gtest.h>

#include <algorithm>

namespace fakes {

inline std::string replacedAll(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// What is done and all that comes of it. A row "> ACTION REST" is done; the rows below it say what
// comes, several lines in one with " | " between, "10 x " before a row that comes so often, "dbg:"
// before an entry that comes in debug mode alone, "file:" before what then comes elsewhere alone. A
// test in both modes shows all of a road.
struct Transcript {
  void expect(const std::string &transcript) {
    std::istringstream rows(transcript);
    std::string expected;
    std::string replay;
    for (std::string row; std::getline(rows, row);) {
      if (!row.starts_with("> ")) {
        expected += linesOf(expanded(row));
        continue;
      }
      expected += row + "\n";
      replay += row + "\n" + act(row);
    }
    EXPECT_EQ(replay, expected);
  }
  // Does what one row says and returns what comes of it.
  std::string act(const std::string &row) {
    const std::string whole = expanded(row);
    const std::size_t blank = std::min(whole.find(' ', 2), whole.size());
    actions.at(whole.substr(2, blank - 2))(whole.substr(std::min(blank + 1, whole.size())));
    std::string all;
    for (const std::string &line : takeLines()) {
      all += line + "\n";
    }
    return all;
  }
  // Rows "~NAME TEXT": what stands for a text from now on, in which there may be further names.
  void name(const std::string &rows) {
    std::istringstream all(rows);
    for (std::string row; std::getline(all, row);) {
      const std::size_t blank = std::min(row.find(' '), row.size());
      names[row.substr(0, blank)] = row.substr(std::min(blank + 1, row.size()));
    }
    names.erase("");
  }

  bool isDebugMode = false;
  std::map<std::string, std::function<void(const std::string &rest)>> actions;
  std::function<std::vector<std::string>()> takeLines;  // what came of the last action

 private:
  [[nodiscard]] std::string expanded(std::string row) const {
    for (std::string before; before != row;) {
      before = row;
      for (const auto &[name, text] : names) {
        row = replacedAll(row, name, text);
      }
    }
    return row;
  }
  [[nodiscard]] std::string linesOf(const std::string &row) const {
    const std::size_t mark = row.find(" x ");
    const bool isOften = mark != std::string::npos && row.find_first_not_of("0123456789") == mark;
    std::istringstream parts(replacedAll(isOften ? row.substr(mark + 3) : row, " | ", "\n"));
    std::string lines;
    for (std::string line; std::getline(parts, line);) {
      const bool isTrace = line.starts_with("dbg:");
      const bool isForFile = line.starts_with("file:");
      if ((!isTrace && !isForFile) || isDebugMode) {
        lines += (isTrace ? "kfy:" + line.substr(4) : line.substr(isForFile ? 5 : 0)) + "\n";
      }
    }
    std::string all;
    for (int left = isOften ? std::stoi(row) : 1; left > 0; --left) {
      all += lines;
    }
    return all;
  }

  // The longer of two names that begin alike comes first.
  std::map<std::string, std::string, std::greater<>> names;
};

}  // namespace fakes
