// ringdecode FILE: prints every message of a ring trace file, all levels merged in write order.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "kernel/RingDecoder.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: ringdecode FILE\n");
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "ringdecode: cannot open %s\n", argv[1]);
    return 1;
  }
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  Vellum::RingDecoder decoder(bytes);
  if (!decoder.ok()) {
    std::fprintf(stderr, "ringdecode: %s: %s\n", argv[1], decoder.error().c_str());
    return 1;
  }
  for (const Vellum::RingMessage& m : decoder.messages()) std::cout << Vellum::ringMessageLine(m) << '\n';
  return 0;
}
