#ifndef MRLBASE_OBJECT_H_
#define MRLBASE_OBJECT_H_

#include <cstddef>
#include <new>

#include <mrlbase/export.h>

// Base of the foundation's heap objects. Its allocation functions live inside mrlbase, so an
// object created by one library (a decoder's CCA_Dib, say) can be deleted by another.
//
//   CCA_Dib* dib = new CCA_Dib;   // storage from mrlbase
//   delete dib;                   // returned to mrlbase
class MRL_API CCA_Object {
 public:
  virtual ~CCA_Object();

  // Storage of one object, or of an array of them. Failure throws std::bad_alloc.
  static void* operator new(std::size_t size);
  static void* operator new[](std::size_t size);
  // Returns storage from the matching new; null is ignored.
  static void operator delete(void* block) noexcept;
  static void operator delete[](void* block) noexcept;
  // Non-throwing forms: null on failure.
  static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
  static void* operator new[](std::size_t size, const std::nothrow_t&) noexcept;
  static void operator delete(void* block, const std::nothrow_t&) noexcept;
  static void operator delete[](void* block, const std::nothrow_t&) noexcept;
  // Placement forms, so an object can still be built in storage the caller holds.
  static void* operator new(std::size_t, void* where) noexcept { return where; }
  static void operator delete(void*, void*) noexcept {}
};

#endif  // MRLBASE_OBJECT_H_
