// Quill::LinkQueue: a singly linked queue with head and tail, read by position from head to tail.
#pragma once

#include "platform/quill/Assert.h"
#include "platform/quill/Int.h"
#include "platform/quill/Pool.h"

#include <cstddef>
#include <iterator>
#include <utility>

namespace Quill {

template < class T > class LinkQueue {
   struct Link : Pooled {
      explicit Link( T v ) : value( std::move( v ) ) {}
      T value;
      Link * next = nullptr;
   };

 public:
   LinkQueue() = default;
   ~LinkQueue() { clear(); }
   LinkQueue( LinkQueue const & ) = delete;
   LinkQueue & operator=( LinkQueue const & ) = delete;

   U32 count() const noexcept { return count_; }
   bool empty() const noexcept { return count_ == 0; }

   void append( T value ) {
      auto * const link = new Link( std::move( value ) );
      if ( head_ ) {
         VALEN_ASSERT( tail_ != nullptr );
         tail_->next = link;
      } else {
         head_ = link;
      }
      tail_ = link;
      ++count_;
   }

   // The element at `position`, counted from the head; null past the end. Takes `position` steps.
   T const * at( U32 position ) const noexcept {
      auto const * link = head_;
      for ( ; link && position; --position ) {
         link = link->next;
      }
      return link ? &link->value : nullptr;
   }

   void clear() noexcept {
      tail_ = nullptr;
      count_ = 0;
      while ( head_ ) {
         delete std::exchange( head_, head_->next );
      }
   }

   class Iterator {
    public:
      using difference_type = std::ptrdiff_t;
      using value_type = T;

      Iterator() = default;
      explicit Iterator( Link const * link ) noexcept : link_( link ) {}
      T const & operator*() const noexcept { return link_->value; }
      T const * operator->() const noexcept { return &link_->value; }
      Iterator & operator++() noexcept {
         link_ = link_->next;
         return *this;
      }
      Iterator operator++( int ) noexcept {
         return std::exchange( *this, Iterator( link_->next ) );
      }
      bool operator==( Iterator const & ) const noexcept = default;

    private:
      Link const * link_ = nullptr;
   };
   Iterator begin() const noexcept { return Iterator( head_ ); }
   Iterator end() const noexcept { return Iterator(); }

 private:
   Link * head_ = nullptr;
   Link * tail_ = nullptr;
   U32 count_ = 0;
};

} // namespace Quill
