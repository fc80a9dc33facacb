// What the tools print: a table whose columns line up, or the same rows as JSON. A cell is text, a
// number or a list of texts; JSON keeps those kinds.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Tools {

class OutputTable {
 public:
  struct Cell {
    std::string text;
    bool number = false;
    std::vector<std::string> list;
    bool isList = false;
  };
  // key: the JSON name; header: the column's title.
  struct Column {
    std::string key;
    std::string header;
  };

  explicit OutputTable(std::vector<Column> columns) : columns_(std::move(columns)) {}

  static Cell text(std::string s) { return Cell{std::move(s), false, {}, false}; }
  static Cell number(long long n) { return Cell{std::to_string(n), true, {}, false}; }
  static Cell list(std::vector<std::string> items) { return Cell{{}, false, std::move(items), true}; }

  void rowIs(std::vector<Cell> row) { rows_.push_back(std::move(row)); }
  size_t rows() const { return rows_.size(); }

  // Columns two blanks apart, each as wide as its widest cell; a list is joined with ", ".
  void printText(std::ostream& out) const;
  // An array of objects, one per row.
  void printJson(std::ostream& out) const;
  static std::string jsonString(const std::string& s);

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<Cell>> rows_;
};

}  // namespace Tools
