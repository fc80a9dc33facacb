// Intrusive reference counting: PtrInterface holds the count and two flags in one word,
// Ptr<T> is the strong pointer. A Ptr copy costs one increment.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Kiv {

// Set once at start, before any second thread exists; then counts use atomic operations.
extern bool enableThreadSafePointers;

class PtrInterface {
 public:
  static constexpr uint32_t notificationActiveFlag = 1u << 31;
  static constexpr uint32_t markedForDeletionFlag = 1u << 30;
  static constexpr uint32_t countMask = markedForDeletionFlag - 1;

  PtrInterface() = default;
  PtrInterface(const PtrInterface&) {}
  PtrInterface& operator=(const PtrInterface&) { return *this; }
  virtual ~PtrInterface() = default;

  uint32_t references() const { return word_ & countMask; }
  bool hasNotificationActive() const { return word_ & notificationActiveFlag; }
  void hasNotificationActiveIs(bool on) { flagIs(notificationActiveFlag, on); }
  bool kivMarkedForDeletion() const { return word_ & markedForDeletionFlag; }
  void kivMarkedForDeletionIs(bool on) { flagIs(markedForDeletionFlag, on); }

  // Inline and small, since every Ptr copy runs them; the last reference's work is out of line.
  [[gnu::always_inline]] void newRef() const {
    if (enableThreadSafePointers) [[unlikely]] {
      std::atomic_ref<uint32_t>(word_).fetch_add(1, std::memory_order_relaxed);
    } else {
      ++word_;
    }
  }
  [[gnu::always_inline]] void deleteRef() const {
    uint32_t left;
    if (enableThreadSafePointers) [[unlikely]] {
      left = std::atomic_ref<uint32_t>(word_).fetch_sub(1, std::memory_order_acq_rel) - 1;
    } else {
      left = --word_;
    }
    if ((left & countMask) == 0) [[unlikely]]
      const_cast<PtrInterface*>(this)->handleZeroRef();
  }

 protected:
  // Last chance to act before the object is destroyed by its last reference going.
  virtual void onZeroReferences() {}

 private:
  [[gnu::noinline]] void handleZeroRef() {
    onZeroReferences();
    delete this;
  }
  void flagIs(uint32_t flag, bool on) {
    if (enableThreadSafePointers) {
      std::atomic_ref<uint32_t> w(word_);
      on ? w.fetch_or(flag) : w.fetch_and(~flag);
    } else {
      word_ = on ? (word_ | flag) : (word_ & ~flag);
    }
  }
  mutable uint32_t word_ = 0;
};

template <class T>
class Ptr {
 public:
  Ptr() noexcept : p_(nullptr) {}
  Ptr(std::nullptr_t) noexcept : p_(nullptr) {}
  explicit Ptr(T* p) noexcept : p_(p) {
    if (p_) p_->newRef();
  }
  Ptr(const Ptr& o) noexcept : p_(o.p_) {
    if (p_) p_->newRef();
  }
  Ptr(Ptr&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(const Ptr<U>& o) noexcept : p_(o.ptr()) {
    if (p_) p_->newRef();
  }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}
  ~Ptr() {
    if (p_) p_->deleteRef();
  }

  Ptr& operator=(const Ptr& o) noexcept {
    Ptr(o).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& o) noexcept {
    Ptr(std::move(o)).swap(*this);
    return *this;
  }

  T* ptr() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  bool operator!() const noexcept { return p_ == nullptr; }
  void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }
  // Gives up ownership without dropping the reference.
  T* release() noexcept { return std::exchange(p_, nullptr); }

  template <class U>
  bool operator==(const Ptr<U>& o) const noexcept {
    return p_ == o.ptr();
  }
  bool operator==(std::nullptr_t) const noexcept { return p_ == nullptr; }

 private:
  T* p_;
};

template <class T, class U>
Ptr<T> ptr_cast(const Ptr<U>& p) {
  return Ptr<T>(static_cast<T*>(p.ptr()));
}

template <class T, class... Args>
Ptr<T> make(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

}  // namespace Kiv
