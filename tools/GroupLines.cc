// Reading the fixed columns of the agent's group lines.
#include "tools/GroupLines.h"

#include <cctype>
#include <sstream>
#include <vector>

namespace Tools {

OutputTable groupTable() {
  return OutputTable({{"vlan", "VLAN"},
                      {"group", "Group"},
                      {"type", "Type"},
                      {"confident", "Confident"},
                      {"ports", "Ports"}});
}

// The regular lines of "showGroups": fixed columns up to the ports, which continue on lines that
// start with blanks when there are many.
void groupLinesParse(const std::string& text, OutputTable& t) {
  std::istringstream in(text);
  std::string line;
  std::vector<OutputTable::Cell>* last = nullptr;
  std::vector<std::vector<OutputTable::Cell>> rows;
  auto splitPorts = [](const std::string& s, std::vector<std::string>& out) {
    std::istringstream ps(s);
    for (std::string p; std::getline(ps, p, ',');) {
      const size_t b = p.find_first_not_of(' '), e = p.find_last_not_of(' ');
      if (b != std::string::npos) out.push_back(p.substr(b, e - b + 1));
    }
  };
  while (std::getline(in, line)) {
    if (line.size() > 52 && line.find_first_not_of(' ') == 52 && last) {
      splitPorts(line.substr(52), (*last)[4].list);
      continue;
    }
    if (line.size() < 55 || !std::isdigit(static_cast<unsigned char>(line[0]))) continue;
    auto field = [&](size_t at, size_t len) {
      std::string f = line.substr(at, len);
      f.erase(f.find_last_not_of(' ') + 1);
      return f;
    };
    std::vector<OutputTable::Cell> row = {OutputTable::number(std::stol(field(0, 5))),
                                          OutputTable::text(field(6, 16)), OutputTable::text(field(23, 8)),
                                          OutputTable::text(line[53] == '*' ? "no" : "yes"),
                                          OutputTable::list({})};
    splitPorts(line.substr(55), row[4].list);
    rows.push_back(std::move(row));
    last = &rows.back();
  }
  for (auto& r : rows) t.rowIs(std::move(r));
}

}  // namespace Tools
