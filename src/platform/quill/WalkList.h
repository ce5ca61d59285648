// A doubly linked list that may change in any way while it is walked.
//
// The watchers of an entity and the members of a collection are in such lists. A walk visits each
// element that is in the list from the walk's start until the element's turn exactly once. It does
// not visit an element that is removed before its turn or added after the walk began. If the list
// is destroyed, the walk ends. Walks nest. Neither walking nor changing allocates.
#pragma once

#include "platform/quill/Int.h"

#include <utility>

namespace Quill {

class WalkList;

// Base of an element, which is in one list at a time and must leave it before it is destroyed.
class WalkHook {
 public:
   WalkHook( WalkHook const & ) = delete;
   WalkHook & operator=( WalkHook const & ) = delete;

 protected:
   WalkHook() = default;
   ~WalkHook() = default;

 private:
   friend class WalkList;
   friend class Walk;
   WalkHook * previous_ = nullptr; // of the first element: the last one
   WalkHook * next_ = nullptr;     // of the last element: null
};

// One pass over a list, on the caller's stack.
class Walk {
 public:
   explicit Walk( WalkList const & list ) noexcept;
   ~Walk();
   Walk( Walk const & ) = delete;
   Walk & operator=( Walk const & ) = delete;

   // The next element, null at the end. The element may be removed or destroyed once returned.
   WalkHook * next() noexcept {
      auto * const element = next_;
      if ( element ) {
         next_ = element == last_ ? nullptr : element->next_;
      }
      return element;
   }

   // Calls `visit` with each element that next() would return. Faster, because the position stays
   // in registers as long as nothing ahead of it is removed.
   template < class Visit > void each( Visit const & visit ) {
      while ( auto * element = next_ ) {
         disturbed_ = false;
         for ( auto const * const last = last_; element && !disturbed_; ) {
            auto * const after = element == last ? nullptr : element->next_;
            next_ = after;
            visit( *element );
            element = after;
         }
      }
   }

 private:
   friend class WalkList;
   WalkList const * list_; // null once the list is destroyed
   WalkHook * next_;
   WalkHook * last_; // the last element at the start of the walk that is still there
   Walk * outer_;
   bool disturbed_ = false; // the list changed next_ or last_
};

class WalkList {
 public:
   WalkList() = default;
   ~WalkList() { release(); }
   WalkList( WalkList const & ) = delete;
   WalkList & operator=( WalkList const & ) = delete;

   bool empty() const noexcept { return !head_; }
   WalkHook * head() const noexcept { return head_; }
   static WalkHook * after( WalkHook const & element ) noexcept { return element.next_; }

   void append( WalkHook & element ) noexcept {
      element.next_ = nullptr;
      if ( head_ ) {
         element.previous_ = head_->previous_;
         element.previous_->next_ = &element;
      } else {
         head_ = &element;
      }
      head_->previous_ = &element;
   }

   void remove( WalkHook & element ) noexcept {
      for ( auto * walk = walks_; walk; walk = walk->outer_ ) {
         leave( *walk, element );
      }
      ( &element == head_ ? head_ : element.previous_->next_ ) = element.next_;
      if ( auto * const behind = element.next_ ? element.next_ : head_ ) {
         behind->previous_ = element.previous_;
      }
      element.previous_ = element.next_ = nullptr;
   }

   // Ends every walk and gives all elements to the caller, without touching any. Returns the first;
   // after() leads to the others.
   WalkHook * release() noexcept {
      for ( auto * walk = std::exchange( walks_, nullptr ); walk; walk = walk->outer_ ) {
         walk->list_ = nullptr;
         walk->next_ = nullptr;
         walk->disturbed_ = true;
      }
      return std::exchange( head_, nullptr );
   }

 private:
   friend class Walk;

   // Ahead of a walk is the range from next_ to last_; remove `element` from it.
   static void leave( Walk & walk, WalkHook const & element ) noexcept {
      bool const isNext = walk.next_ == &element;
      walk.disturbed_ = walk.disturbed_ || isNext || walk.last_ == &element;
      if ( walk.last_ == &element ) {
         walk.last_ = element.previous_;
         if ( isNext ) {
            walk.next_ = nullptr;
         }
      } else if ( isNext ) {
         walk.next_ = element.next_;
      }
   }

   WalkHook * last() const noexcept { return head_ ? head_->previous_ : nullptr; }

   WalkHook * head_ = nullptr;
   mutable Walk * walks_ = nullptr; // innermost first
};

// The list refers to a walk on the stack until the walk's destructor runs or the list is destroyed.
// g++ 12 does not see that.
#if defined( __GNUC__ ) && !defined( __clang__ )
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
inline Walk::Walk( WalkList const & list ) noexcept
    : list_( &list ), next_( list.head_ ), last_( list.last() ), outer_( list.walks_ ) {
   list.walks_ = this;
}
#if defined( __GNUC__ ) && !defined( __clang__ )
#pragma GCC diagnostic pop
#endif

inline Walk::~Walk() {
   if ( !list_ ) {
      return;
   }
   // Walks end in the reverse order of their start, except for iterators that a caller keeps.
   for ( auto ** link = &list_->walks_; *link; link = &( *link )->outer_ ) {
      if ( *link == this ) {
         *link = outer_;
         return;
      }
   }
}

} // namespace Quill
