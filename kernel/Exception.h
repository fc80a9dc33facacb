// The kernel's exceptions and the assertion that ends the process with the expression's text.
#pragma once

#include <stdexcept>
#include <string>

namespace Kiv {

class Exception : public std::runtime_error {
 public:
  explicit Exception(const std::string& what) : std::runtime_error(what) {}
};
class RangeException : public Exception {
  using Exception::Exception;
};
class NameInUseException : public Exception {
  using Exception::Exception;
};
class ImmutableAttrMutationException : public Exception {
  using Exception::Exception;
};
class NullPointerException : public Exception {
  using Exception::Exception;
};

[[noreturn]] void throwRangeException(const std::string& text);
[[noreturn]] void throwNameInUseException(const std::string& text);
[[noreturn]] void throwImmutableAttrMutationException(const std::string& text);
// "null _<param> parameter to mutator for <Type>::<attr> not allowed"
[[noreturn]] void throwNullMutatorParameter(const char* param, const char* typeAndAttr);

// Writes "Assertion `<expr>' failed" with the place to standard error and the ring trace, then aborts.
[[noreturn]] void assertionFailed(const char* expr, const char* file, int line, const char* func);

}  // namespace Kiv

// Checks an invariant of the agent itself; never used on packet bytes.
#define KIV_ASSERT(expr) KIV_ASSERT_TEXT(expr, #expr)
// The same with the text to print given apart, where it must stand exactly as written.
#define KIV_ASSERT_TEXT(expr, text) \
  ((expr) ? static_cast<void>(0) : ::Kiv::assertionFailed(text, __FILE__, __LINE__, __PRETTY_FUNCTION__))
