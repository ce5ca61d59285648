// The answer of a method that takes long to make: made in parts, so that others wait for a short time only, and once
// for all who ask meanwhile.
//
// Who asks gets an answer whose making begins afterwards, so that it has all that was changed before.
#pragma once

#include "valend/api/Method.h"
#include "valend/base/Slices.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Valend {

class SlowAnswer {
 public:
   // Appends the next part of the answer's parameters, the text of a JSON object. Returns whether more parts follow.
   // Takes a few microseconds, and does not throw.
   using Part = std::function< bool( std::string & text ) >;
   // Called when an answer is begun; returns what makes it.
   using Begin = std::function< Part() >;

   struct List {
      std::string name;
      std::function< std::optional< Json >() > next; // returns its next element, nothing at the end
   };
   // The parts of an answer that is some lists, and other fields. `rest` returns an object with these, at the end.
   static Part lists(
      std::vector< List > lists, std::function< Json() > rest = [] { return Json::object(); } );

   // `work` must outlive this.
   SlowAnswer( Gantry::WorkQueue & work, Quill::Ptr< Gantry::TaskScheduler > scheduler,
               std::string name, Begin begin )
       : begin_( std::move( begin ) ), slices_( work, std::move( scheduler ), std::move( name ) ) {}

   // Answers the call, in a later turn of the loop.
   void to( Call const & call );

 private:
   bool step();

   Begin const begin_;
   std::vector< Call > waiting_; // for the next answer
   std::vector< Call > calls_;   // that get the one that is being made
   Part part_;                   // null when none is being made
   std::string text_;
   Varlink::Encoded answer_; // once it is made
   Slices slices_;
};

} // namespace Valend
