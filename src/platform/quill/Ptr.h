// Quill::Ptr: an intrusive, reference-counted handle to an entity, a reactor or a service.
//
// One word. Copying increments, destruction decrements; at zero the object is destroyed. Equality
// is identity. A null handle is a normal value that means absent. Counts are plain: everything on
// the framework runs on one thread.
#pragma once

#include "platform/quill/Int.h"

#include <compare>
#include <cstddef>
#include <functional>
#include <utility>

namespace Quill {

// Base of everything that a Ptr holds. An object is born with one reference, which Quill::make
// hands to the first Ptr, so a constructor may pass `this` to temporary handles. While it is
// destroyed its count cannot reach zero again, so a destructor may do the same.
class PtrInterface {
 public:
   PtrInterface( PtrInterface const & ) = delete;
   PtrInterface & operator=( PtrInterface const & ) = delete;

   void refInc() const noexcept { ++refs_; }
   void refDec() const noexcept {
      if ( --refs_ == 0 ) {
         dispose();
      }
   }
   U32 refs() const noexcept { return refs_; }

 protected:
   PtrInterface() = default;
   virtual ~PtrInterface() = default;

 private:
   static constexpr U32 dying = 1u << 30;

   void dispose() const noexcept {
      refs_ = dying;
      delete this;
   }

   mutable U32 refs_ = 1;
};

template < class T > class Ptr {
 public:
   using Target = T;

   constexpr Ptr() noexcept = default;
   constexpr Ptr( std::nullptr_t ) noexcept {}               // NOLINT(google-explicit-constructor)
   Ptr( T * object ) noexcept : object_( object ) { inc(); } // NOLINT(google-explicit-constructor)
   Ptr( Ptr const & other ) noexcept : object_( other.object_ ) { inc(); }
   Ptr( Ptr && other ) noexcept : object_( std::exchange( other.object_, nullptr ) ) {}
   template < class U >
   requires std::is_convertible_v< U *, T * > Ptr( Ptr< U > const & other )
   noexcept : object_( other.get() ) { // NOLINT
      inc();
   }
   template < class U >
   requires std::is_convertible_v< U *, T * > Ptr( Ptr< U > && other )
   noexcept : object_( other.release() ) {} // NOLINT
   ~Ptr() { dec(); }

   Ptr & operator=( Ptr other ) noexcept {
      std::swap( object_, other.object_ );
      return *this;
   }

   // Takes over a reference that the caller holds.
   static Ptr adopt( T * object ) noexcept {
      Ptr handle;
      handle.object_ = object;
      return handle;
   }
   // Gives the reference to the caller.
   T * release() noexcept { return std::exchange( object_, nullptr ); }

   T * get() const noexcept { return object_; }
   T & operator*() const noexcept { return *object_; }
   T * operator->() const noexcept { return object_; }
   explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
   void inc() const noexcept {
      if ( object_ ) {
         object_->refInc();
      }
   }
   void dec() const noexcept {
      if ( object_ ) {
         object_->refDec();
      }
   }

   T * object_ = nullptr;
};

template < class T, class U > bool operator==( Ptr< T > const & a, Ptr< U > const & b ) noexcept {
   return a.get() == b.get();
}
template < class T > bool operator==( Ptr< T > const & a, std::nullptr_t ) noexcept {
   return a.get() == nullptr;
}
template < class T, class U > bool operator<( Ptr< T > const & a, Ptr< U > const & b ) noexcept {
   return std::less< void const * >()( a.get(), b.get() );
}

// Makes a T through its tracked allocator and returns the only handle to it.
template < class T, class... Args > Ptr< T > make( Args &&... args ) {
   return Ptr< T >::adopt( new T( std::forward< Args >( args )... ) );
}

// A handle to the same object as its real type, or null when it is of another one.
template < class T, class U > Ptr< T > ptrCast( Ptr< U > const & handle ) noexcept {
   return Ptr< T >( dynamic_cast< T * >( handle.get() ) );
}

} // namespace Quill
