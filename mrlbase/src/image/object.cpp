#include <mrlbase/object.h>

#include <new>

CCA_Object::~CCA_Object() = default;

void* CCA_Object::operator new(std::size_t size) { return ::operator new(size); }

void* CCA_Object::operator new[](std::size_t size) { return ::operator new[](size); }

void CCA_Object::operator delete(void* block) noexcept { ::operator delete(block); }

void CCA_Object::operator delete[](void* block) noexcept { ::operator delete[](block); }

void* CCA_Object::operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return ::operator new(size, std::nothrow);
}

void* CCA_Object::operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return ::operator new[](size, std::nothrow);
}

void CCA_Object::operator delete(void* block, const std::nothrow_t&) noexcept { ::operator delete(block); }

void CCA_Object::operator delete[](void* block, const std::nothrow_t&) noexcept { ::operator delete[](block); }
