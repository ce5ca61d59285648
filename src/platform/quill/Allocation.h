// Tracked allocation: how many objects of each type exist, and how many were ever made.
//
// A class that carries QUILL_TRACKED is counted wherever it is made with `new`, which is what
// Quill::make does. Tests use the counts to prove that teardown frees everything; a daemon can show
// them as its memory by type. Single-threaded, like the whole framework.
#pragma once

#include "platform/quill/Int.h"

#include <cstddef>
#include <vector>

namespace Quill {

// The counts of one type. Exists for the whole process.
struct AllocationType {
   char const * name;               // qualified, "Valen::Intf"
   U64 live = 0;                    // objects alive now
   U64 total = 0;                   // objects ever made
   U64 liveBytes = 0;               // bytes held by the live objects themselves
   AllocationType * next = nullptr; // the list of all types in use; set at the first allocation
};

void * allocate( AllocationType & type, std::size_t size );
void deallocate( AllocationType & type, void * memory, std::size_t size ) noexcept;

// Every type that ever had an object, sorted by name.
std::vector< AllocationType const * > allocationTypes();

// The number of live objects of all types.
U64 liveObjects();

} // namespace Quill

// Inside a class: allocation through the tracked allocator, counted under `QualifiedName`.
#define QUILL_TRACKED( QualifiedName )                                                             \
 public:                                                                                           \
   static void * operator new( std::size_t size ) {                                                \
      return ::Quill::allocate( quillAllocation, size );                                           \
   }                                                                                               \
   static void operator delete( void * memory, std::size_t size ) noexcept {                       \
      ::Quill::deallocate( quillAllocation, memory, size );                                        \
   }                                                                                               \
   inline static constinit ::Quill::AllocationType quillAllocation{ #QualifiedName };
