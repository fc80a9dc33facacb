// Reading a ring trace file and printing it.
#include "tools/RingDecodeTool.h"

#include <fstream>
#include <iterator>

#include "kernel/RingDecoder.h"

namespace Tools {

int ringDecodeFile(const char* prog, const std::string& path, std::ostream& out, std::ostream& err) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    err << prog << ": cannot open " << path << '\n';
    return 1;
  }
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  Vellum::RingDecoder decoder(bytes);
  if (!decoder.ok()) {
    err << prog << ": " << path << ": " << decoder.error() << '\n';
    return 1;
  }
  for (const Vellum::RingMessage& m : decoder.messages()) out << Vellum::ringMessageLine(m) << '\n';
  return 0;
}

}  // namespace Tools
