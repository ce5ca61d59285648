#include "valend/ApiAccess.h"

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

ApiAccess::ApiAccess( std::string readers, std::string changers )
    : readers_( std::move( readers ) ), changers_( std::move( changers ) ) {
   refresh();
}

void ApiAccess::refresh() {
   readersId_ = groupId( readers_ );
   changersId_ = groupId( changers_ );
}

ApiRight ApiAccess::of( ApiCaller const & caller ) const noexcept {
   if ( caller.isRoot() || ( changersId_ && caller.isIn( *changersId_ ) ) ) {
      return ApiRight::change;
   }
   return readersId_ && caller.isIn( *readersId_ ) ? ApiRight::read : ApiRight::none;
}

std::string ApiAccess::refusal( ApiCaller const & caller, std::string const & method,
                                ApiRight needed ) const {
   auto const groups = needed == ApiRight::change
                          ? "root or the group \"" + changers_ + "\""
                          : "root or a group, \"" + readers_ + "\" or \"" + changers_ + "\"";
   return caller.name() + " may not call " + method + ": that takes " + groups;
}

} // namespace Valend
