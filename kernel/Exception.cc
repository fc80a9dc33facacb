// Raising the kernel's exceptions, and the assertion failure path.
#include "kernel/Exception.h"

#include <cstdio>
#include <cstdlib>

namespace Kiv {

void throwRangeException(const std::string& text) { throw RangeException(text); }
void throwNameInUseException(const std::string& text) { throw NameInUseException(text); }
void throwImmutableAttrMutationException(const std::string& text) {
  throw ImmutableAttrMutationException(text);
}
void throwNullMutatorParameter(const char* param, const char* typeAndAttr) {
  throw NullPointerException(std::string("null _") + param + " parameter to mutator for " + typeAndAttr +
                             " not allowed");
}

void assertionFailed(const char* expr, const char* file, int line, const char* func) {
  std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, func, expr);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Kiv
