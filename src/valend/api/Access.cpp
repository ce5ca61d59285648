#include "valend/api/Access.h"

#include <charconv>
#include <cstdio>
#include <grp.h>
#include <memory>
#include <pwd.h>
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

// The user's login name, or "uid 1000". Only /etc/passwd is read: getpwuid would also query
// name services, which may take seconds, and any user could cause that.
std::string loginName( Varlink::Caller const & caller ) {
   std::unique_ptr< FILE, int ( * )( FILE * ) > const users( std::fopen( "/etc/passwd", "re" ),
                                                             &std::fclose );
   std::vector< char > buffer( 4096 );
   passwd entry{};
   passwd * found = nullptr;
   while ( users &&
           ::fgetpwent_r( users.get(), &entry, buffer.data(), buffer.size(), &found ) == 0 ) {
      if ( entry.pw_uid == caller.uid ) {
         return entry.pw_name;
      }
   }
   return caller.name();
}

} // namespace

Access::Access( std::string readers, std::string changers )
    : readers_( std::move( readers ) ), changers_( std::move( changers ) ) {
   refresh();
}

void Access::refresh() {
   readersId_ = groupId( readers_ );
   changersId_ = groupId( changers_ );
}

Right Access::of( Varlink::Caller const & caller ) const noexcept {
   if ( caller.isRoot() || ( changersId_ && caller.isIn( *changersId_ ) ) ) {
      return Right::change;
   }
   return readersId_ && caller.isIn( *readersId_ ) ? Right::read : Right::none;
}

void Access::require( Right right, Varlink::Caller const & caller,
                      std::string const & method ) const {
   if ( of( caller ) >= right ) {
      return;
   }
   auto const groups = right == Right::change ? changers_ : readers_ + " or " + changers_;
   throw Varlink::Errors::permissionDenied( "permission denied: " + method +
                                            " requires root or group " + groups + " (you are " +
                                            loginName( caller ) + ")" );
}

} // namespace Valend
