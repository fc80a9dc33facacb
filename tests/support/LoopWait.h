// Turns the process loop on the system clock and epoll until a condition holds: the bounded wait of
// tests whose events come from real Linux I/O.
#pragma once

#include <functional>

namespace TestNet {

// False when limitSeconds pass first.
bool turnUntil(const std::function<bool()>& done, double limitSeconds = 5);

}  // namespace TestNet
