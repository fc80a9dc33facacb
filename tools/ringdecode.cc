// ringdecode FILE...: prints every message of each ring trace file, all levels merged in write order.
// Given the current file and those renamed aside by later openers, it prints each in turn under its name.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "kernel/RingDecoder.h"

namespace {

bool decodeFile(const char* path, bool withName) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "ringdecode: cannot open %s\n", path);
    return false;
  }
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  Vellum::RingDecoder decoder(bytes);
  if (!decoder.ok()) {
    std::fprintf(stderr, "ringdecode: %s: %s\n", path, decoder.error().c_str());
    return false;
  }
  if (withName) std::cout << "==> " << path << " <==\n";
  for (const Vellum::RingMessage& m : decoder.messages()) std::cout << Vellum::ringMessageLine(m) << '\n';
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: ringdecode FILE...\n");
    return 2;
  }
  bool ok = true;
  for (int i = 1; i < argc; ++i) ok = decodeFile(argv[i], argc > 2) && ok;
  return ok ? 0 : 1;
}
