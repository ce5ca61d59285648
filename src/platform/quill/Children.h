// The reactors that a reactor owns.
//
//   Child< R >                one, or none
//   Children< R, &R::key >    any number, each under its key
//
// Both make a child from parameters (its constructor's, but for the key), find it again, and retire
// it: a child that is retired from within its own handler is silenced at once and destroyed when
// the handler returns (Reactor::retire). What happens if there is a child already is the caller's
// choice:
//
//   instantiate   the re-instantiation rule: returns it if it was made from the same parameters,
//                 throws NameInUseException and changes nothing otherwise
//   replace       keeps it if it was made from the same parameters, retires it otherwise
//   findOrMake    returns it, whatever it was made from
//
// The first two need R::quillParameters() (Reinstantiation.h).
#pragma once

#include "platform/quill/Reactor.h"
#include "platform/quill/Reinstantiation.h"

#include <type_traits>
#include <utility>

namespace Quill {

template < class R > class Child {
 public:
   // Null if there is no child.
   Ptr< R > const & get() const noexcept { return child_; }
   R * operator->() const noexcept { return child_.get(); }
   explicit operator bool() const noexcept { return static_cast< bool >( child_ ); }

   template < class... P > Ptr< R > instantiate( P &&... parameters ) {
      if ( child_ ) {
         requireSameParameters( *child_, parameters... );
      } else {
         child_ = make< R >( std::forward< P >( parameters )... );
      }
      return child_;
   }

   template < class... P > void replace( P &&... parameters ) {
      if ( !child_ || !hasParameters( *child_, parameters... ) ) {
         retire();
         child_ = make< R >( std::forward< P >( parameters )... );
      }
   }

   // Takes a child that was made elsewhere, or none, and retires the one before.
   void set( Ptr< R > child ) {
      if ( child == child_ ) {
         return;
      }
      std::swap( child_, child );
      if constexpr ( std::is_base_of_v< Reactor, R > ) {
         Reactor::retire( std::move( child ) );
      }
   }

   void retire() { set( nullptr ); }

 private:
   Ptr< R > child_;
};

template < class R, auto keyOf > class Children : private Members< R, keyOf > {
   using Base = Members< R, keyOf >;

 public:
   using typename Base::Key;

   using Base::begin;
   using Base::count;
   using Base::end;
   using Base::find; // null if there is no such child
   using Base::has;

   template < class... P > Ptr< R > instantiate( Key const & key, P &&... parameters ) {
      if ( auto const existing = find( key ) ) {
         requireSameParameters( *existing, parameters... );
         return existing;
      }
      return add( key, std::forward< P >( parameters )... );
   }

   template < class... P > Ptr< R > replace( Key const & key, P &&... parameters ) {
      if ( auto const existing = find( key ) ) {
         if ( hasParameters( *existing, parameters... ) ) {
            return existing;
         }
         retire( key );
      }
      return add( key, std::forward< P >( parameters )... );
   }

   template < class... P > Ptr< R > findOrMake( Key const & key, P &&... parameters ) {
      if ( auto const existing = find( key ) ) {
         return existing;
      }
      return add( key, std::forward< P >( parameters )... );
   }

   // Removes the child and returns the handle to it, for an owner that does more than retire it.
   // Null if there was no such child.
   [[nodiscard]] Ptr< R > remove( Key const & key ) noexcept { return Base::remove( key ); }

   // No effect if there is no such child.
   void retire( Key const & key ) { Reactor::retire( remove( key ) ); }

   void retireAll() {
      for ( auto const & child : *this ) {
         retire( ( *child.*keyOf )() );
      }
   }

 private:
   // A child whose key follows from its other parameters does not take it.
   template < class... P > Ptr< R > add( Key const & key, P &&... parameters ) {
      Ptr< R > child;
      if constexpr ( std::is_constructible_v< R, Key const &, P... > ) {
         child = make< R >( key, std::forward< P >( parameters )... );
      } else {
         child = make< R >( std::forward< P >( parameters )... );
      }
      this->insert( child );
      return child;
   }
};

} // namespace Quill
