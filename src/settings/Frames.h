// The frames that one agent has queued for one interface.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Settings {

// While frames are collected. Each is the complete bytes of one.
using FrameList = std::vector< std::string >;

// Frames in the order of sending. They do not change, and copies share them, also between threads: a copy
// costs a counter, whatever the frames' size.
class Frames {
 public:
   using value_type = std::string;

   Frames() = default;
   Frames( FrameList frames ) // NOLINT: the same, as a value
       : list_( frames.empty() ? nullptr
                               : std::make_shared< FrameList const >( std::move( frames ) ) ) {}
   Frames( std::initializer_list< std::string > frames ) : Frames( FrameList( frames ) ) {}

   FrameList const & list() const noexcept { return list_ ? *list_ : none(); }
   bool empty() const noexcept { return !list_; }
   std::size_t size() const noexcept { return list().size(); }
   std::string const & operator[]( std::size_t i ) const noexcept { return list()[ i ]; }
   FrameList::const_iterator begin() const noexcept { return list().begin(); }
   FrameList::const_iterator end() const noexcept { return list().end(); }

   friend bool operator==( Frames const & a, Frames const & b ) {
      return a.list_ == b.list_ || a.list() == b.list();
   }

 private:
   static FrameList const & none() noexcept {
      static FrameList const empty;
      return empty;
   }

   std::shared_ptr< FrameList const > list_; // null: none
};

} // namespace Settings
