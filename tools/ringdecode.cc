// ringdecode FILE...: prints every message of each ring trace file, all levels merged in write order.
// Given the current file and those renamed aside by later openers, it prints each in turn under its name.
#include <cstdio>
#include <iostream>

#include "tools/RingDecodeTool.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: ringdecode FILE...\n");
    return 2;
  }
  int status = 0;
  for (int i = 1; i < argc; ++i) {
    if (argc > 2) std::cout << "==> " << argv[i] << " <==\n";
    if (Tools::ringDecodeFile("ringdecode", argv[i], std::cout, std::cerr) != 0) status = 1;
  }
  return status;
}
