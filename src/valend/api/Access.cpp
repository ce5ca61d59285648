#include "valend/api/Access.h"

#include "valend/api/Users.h"

#include <charconv>
#include <grp.h>
#include <vector>

namespace Valend {

namespace {

std::optional< U32 > groupId( std::string const & name ) {
   U32 number = 0;
   auto const end = name.data() + name.size();
   auto const [ stop, code ] = std::from_chars( name.data(), end, number );
   if ( code == std::errc() && stop == end ) {
      return number;
   }
   std::vector< char > buffer( 1u << 16 ); // the group's members are in it, too
   group entry{};
   group * found = nullptr;
   ::getgrnam_r( name.c_str(), &entry, buffer.data(), buffer.size(), &found );
   return found ? std::optional< U32 >( found->gr_gid ) : std::nullopt;
}

} // namespace

Access::Access( std::string readers, std::string changers )
    : readers_( std::move( readers ) ), changers_( std::move( changers ) ), groups_( lookUp()() ) {}

std::function< Access::Groups() > Access::lookUp() const {
   return [ readers = readers_, changers = changers_ ] {
      return Groups{ groupId( readers ), groupId( changers ) };
   };
}

Right Access::of( Varlink::Caller const & caller ) const noexcept {
   if ( caller.isRoot() || ( groups_.changers && caller.isIn( *groups_.changers ) ) ) {
      return Right::change;
   }
   return groups_.readers && caller.isIn( *groups_.readers ) ? Right::read : Right::none;
}

void Access::require( Right right, Varlink::Caller const & caller,
                      std::string const & method ) const {
   if ( of( caller ) >= right ) {
      return;
   }
   auto const groups = right == Right::change ? changers_ : readers_ + " or " + changers_;
   throw Varlink::Errors::permissionDenied( "permission denied: " + method +
                                            " requires root or group " + groups + " (you are " +
                                            userName( caller.uid ) + ")" );
}

} // namespace Valend
