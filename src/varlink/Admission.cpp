#include "varlink/Admission.h"

#include <algorithm>
#include <array>
#include <functional>
#include <tuple>

namespace Varlink {

namespace {

// At most `most` of the connections for which `bounds` is true.
struct Bound {
   std::function< bool( Seat const & seat ) > bounds;
   std::size_t most;
};

std::size_t less( std::size_t all, std::size_t reserved ) {
   return all - std::min( all, reserved );
}

// What clients of a rank may use, together with those of lower ranks.
std::size_t mostOf( Rank rank, Limits const & limits ) {
   return rank == Rank::root    ? limits.connections
          : rank == Rank::admin ? less( limits.connections, limits.reservedForRoot )
                                : less( limits.connections, limits.reservedForAdmins );
}

// Whether the seat counts for the bound of `rank`: strangers and users share theirs.
bool isOf( Rank rank, Seat const & seat ) {
   return seat.rank <= std::max( rank, Rank::user );
}

std::vector< Bound > boundsOf( Newcomer const & newcomer, Limits const & limits ) {
   auto const ofUser = [ uid = newcomer.uid ]( Seat const & seat ) { return seat.uid == uid; };
   std::vector< Bound > bounds{
      { [ rank = newcomer.rank ]( Seat const & seat ) { return isOf( rank, seat ); },
        mostOf( newcomer.rank, limits ) },
      { []( Seat const & ) { return true; }, limits.connections },
   };
   if ( newcomer.rank == Rank::stranger ) {
      bounds.push_back(
         { []( Seat const & seat ) { return seat.rank == Rank::stranger; }, limits.strangers } );
      bounds.push_back( { ofUser, limits.connectionsPerStranger } );
   } else if ( newcomer.rank != Rank::root ) {
      bounds.push_back( { ofUser, limits.connectionsPerUser } );
   }
   return bounds;
}

} // namespace

Admission admit( Newcomer const & newcomer, std::vector< Seat > const & seats,
                 Limits const & limits ) {
   std::vector< Bound > reached;
   for ( auto & bound : boundsOf( newcomer, limits ) ) {
      auto const count = std::count_if( seats.begin(), seats.end(), bound.bounds );
      if ( static_cast< std::size_t >( count ) >= bound.most ) {
         reached.push_back( std::move( bound ) );
      }
   }
   if ( reached.empty() ) {
      return { true, std::nullopt };
   }
   // The one that comes first in this order leaves.
   using Order = std::tuple< bool, bool, Gantry::Time >;
   std::optional< std::pair< Order, U64 > > first;
   for ( auto const & seat : seats ) {
      auto const since = seat.unreadSince ? seat.unreadSince : seat.idleSince;
      bool const makesRoom =
         since && seat.rank <= newcomer.rank &&
         std::all_of( reached.begin(), reached.end(),
                      [ & ]( auto const & bound ) { return bound.bounds( seat ); } );
      if ( makesRoom ) {
         std::pair const candidate{ Order{ !seat.unreadSince, seat.rank != Rank::stranger, *since },
                                    seat.number };
         first = first ? std::min( *first, candidate ) : candidate;
      }
   }
   return first ? Admission{ true, first->second } : Admission{ false, std::nullopt };
}

bool mayLast( Rank rank, std::vector< Seat > const & seats, Limits const & limits ) {
   auto const count = std::count_if( seats.begin(), seats.end(), [ & ]( auto const & seat ) {
      return seat.lasting && isOf( rank, seat );
   } );
   return static_cast< std::size_t >( count ) <
          less( mostOf( rank, limits ), limits.reservedForAdmins );
}

} // namespace Varlink
