// ringdecode FILE: prints every message of a ring trace file, all levels merged in write order.
#include <cstdio>
#include <iostream>

#include "tools/RingDecodeTool.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: ringdecode FILE\n");
    return 2;
  }
  return Tools::ringDecodeFile("ringdecode", argv[1], std::cout, std::cerr);
}
