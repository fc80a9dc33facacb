// Network namespaces for tests and benchmarks that need real Linux interfaces: each has a name unique
// to the process and is removed when the object goes, whatever happened in between.
#pragma once

#include <string>

namespace TestNet {

class NetNs {
 public:
  // Why namespaces can't be made here (not root, no netns support), or empty when they can.
  static const std::string& unavailable();

  // Named "igs-<tag>-<pid>".
  explicit NetNs(const std::string& tag);
  ~NetNs();
  NetNs(const NetNs&) = delete;
  NetNs& operator=(const NetNs&) = delete;

  const std::string& name() const { return name_; }
  bool ok() const { return ok_; }
  // Runs `ip -n <name> <args>`; false, with the command and its output on standard error, on failure.
  bool ip(const std::string& args) const;
  // Runs a shell command line inside the namespace, with the same reporting.
  bool exec(const std::string& command) const;
  // The interface's index in this namespace, or 0.
  int ifindex(const std::string& intf) const;

  // Puts the calling thread into the namespace for its lifetime; sockets opened meanwhile stay there.
  class Inside {
   public:
    explicit Inside(const NetNs& ns);
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

   private:
    int back_;
  };

 private:
  std::string name_;
  bool ok_ = false;
};

// Runs a shell command; false, with the command and its output on standard error, on failure.
bool shell(const std::string& command);

}  // namespace TestNet
