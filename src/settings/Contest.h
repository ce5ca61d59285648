// Who has what of which there is one: VRFs their namespaces, interfaces their devices.
#pragma once

#include "platform/quill/Int.h"

#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace Settings {

// Each contender claims one thing after the other, until it has one. A thing belongs to the best claim: that of the
// contender to which the files give the thing; else of the least rank; else of the first name. Who loses it to a better
// claim makes the next one. A claim that has lost would lose again, as who has a thing only gets better: so the outcome
// does not depend on the order of the claims.
class Contest {
 public:
   // What a claim is based on.
   enum class Rank : U8 { files, present, last };
   struct Claim {
      Rank rank;
      std::string thing;
   };

   // `claims`: in order of preference. They may be empty.
   void enter( std::string const & name, std::vector< Claim > claims ) {
      std::string given; // by the files
      for ( auto const & claim : claims ) {
         given = claim.rank == Rank::files ? claim.thing : given;
      }
      contenders_[ name ] = { std::move( claims ), 0, given };
      settle( name );
   }

   // The claim that the contender has got; null if none.
   Claim const * won( std::string const & name ) const {
      auto const found = contenders_.find( name );
      if ( found == contenders_.end() || found->second.next >= found->second.claims.size() ) {
         return nullptr;
      }
      return &found->second.claims[ found->second.next ];
   }
   // Who has it; empty if it is free.
   std::string holder( std::string const & thing ) const {
      auto const found = holders_.find( thing );
      return found == holders_.end() ? "" : found->second;
   }

 private:
   struct Contender {
      std::vector< Claim > claims;
      std::size_t next; // that it has, or makes now
      std::string given;
   };

   // In order, the best first.
   auto order( std::string const & name ) const {
      auto const & contender = contenders_.at( name );
      auto const & claim = contender.claims.at( contender.next );
      return std::tuple( claim.thing != contender.given, claim.rank, name );
   }

   void settle( std::string name ) {
      while ( auto const * const claim = won( name ) ) {
         auto & holder = holders_[ claim->thing ];
         if ( holder.empty() ) {
            holder = name;
            return;
         }
         if ( order( name ) < order( holder ) ) {
            std::swap( holder, name );
         }
         ++contenders_[ name ].next;
      }
   }

   std::map< std::string, Contender > contenders_; // by name
   std::map< std::string, std::string > holders_;  // by thing
};

} // namespace Settings
