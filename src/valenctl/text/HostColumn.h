// Tables about several hosts: the elements of their lists have a field "host", and the tables a column for it.
#pragma once

#include "valenctl/text/JsonFields.h"
#include "valenctl/text/Table.h"

namespace Valenctl {

class HostColumn {
 public:
   // Of a list, whose elements all have a host, or none has.
   explicit HostColumn( Json const & list )
       : shown_( !list.empty() && list.front().contains( "host" ) ) {}

   std::vector< std::string > headings( std::vector< std::string > rest ) const {
      return with( "HOST", std::move( rest ) );
   }
   std::vector< std::string > row( Json const & element, std::vector< std::string > rest ) const {
      return with( textField( element, "host" ), std::move( rest ) );
   }

 private:
   std::vector< std::string > with( std::string const & cell,
                                    std::vector< std::string > rest ) const {
      if ( shown_ ) {
         rest.insert( rest.begin(), cell );
      }
      return rest;
   }

   bool const shown_;
};

// The name of an interface, after that of its host if it has one: "Ethernet1", "rtr1 Ethernet1".
inline std::string nameWithHost( Json const & element, char const * name ) {
   auto const host = textField( element, "host" );
   return ( host.empty() ? "" : host + " " ) + textField( element, name );
}

} // namespace Valenctl
