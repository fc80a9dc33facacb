// Text and JSON forms of a table.
#include "tools/OutputTable.h"

#include <algorithm>
#include <cstdio>

namespace Tools {

namespace {
std::string cellText(const OutputTable::Cell& c) {
  if (!c.isList) return c.text;
  std::string out;
  for (const auto& item : c.list) out += (out.empty() ? "" : ", ") + item;
  return out;
}
}  // namespace

void OutputTable::printText(std::ostream& out) const {
  std::vector<size_t> width;
  for (const auto& c : columns_) width.push_back(c.header.size());
  for (const auto& row : rows_) {
    for (size_t i = 0; i < row.size() && i < width.size(); ++i)
      width[i] = std::max(width[i], cellText(row[i]).size());
  }
  auto line = [&](const std::vector<std::string>& cells) {
    std::string s;
    for (size_t i = 0; i < cells.size(); ++i) {
      s += cells[i];
      if (i + 1 < cells.size()) s += std::string(width[i] - cells[i].size() + 2, ' ');
    }
    out << s << '\n';
  };
  std::vector<std::string> header;
  for (const auto& c : columns_) header.push_back(c.header);
  line(header);
  for (const auto& row : rows_) {
    std::vector<std::string> cells;
    for (const auto& c : row) cells.push_back(cellText(c));
    line(cells);
  }
}

std::string OutputTable::jsonString(const std::string& s) {
  std::string out = "\"";
  for (unsigned char ch : s) {
    if (ch == '"' || ch == '\\') {
      out += '\\';
      out += static_cast<char>(ch);
    } else if (ch < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", ch);
      out += buf;
    } else {
      out += static_cast<char>(ch);
    }
  }
  return out + "\"";
}

void OutputTable::printJson(std::ostream& out) const {
  out << "[";
  for (size_t r = 0; r < rows_.size(); ++r) {
    out << (r ? ",\n " : "\n ") << "{";
    for (size_t i = 0; i < rows_[r].size() && i < columns_.size(); ++i) {
      const Cell& c = rows_[r][i];
      out << (i ? ", " : "") << jsonString(columns_[i].key) << ": ";
      if (c.isList) {
        out << "[";
        for (size_t k = 0; k < c.list.size(); ++k) out << (k ? ", " : "") << jsonString(c.list[k]);
        out << "]";
      } else {
        out << (c.number ? c.text : jsonString(c.text));
      }
    }
    out << "}";
  }
  out << (rows_.empty() ? "]\n" : "\n]\n");
}

}  // namespace Tools
