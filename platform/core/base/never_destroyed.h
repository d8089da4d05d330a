// A static object that is used until the process ends, after the destructors of other static objects. It is
// not on the heap, where each load of a module that has it would leak one.
#pragma once

template <typename T>
class NeverDestroyed {
 public:
  NeverDestroyed() : object_() {}
  ~NeverDestroyed() {}  // a union does not destroy its member
  NeverDestroyed(const NeverDestroyed&) = delete;
  NeverDestroyed& operator=(const NeverDestroyed&) = delete;
  T& operator*() { return object_; }

 private:
  union {
    T object_;
  };
};
