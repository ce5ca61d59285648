#include "goodbye/Mdns.h"

#include <tins/dns.h>

namespace Goodbye {

namespace {

constexpr U16 port = 5353;
constexpr U8 hopLimit = 255;
constexpr U16 internet = 1;
// The cache-flush bit for unique records: receivers drop all other records of that name and type.
constexpr U16 cacheFlush = 0x8000;
constexpr std::size_t maxLabelBytes = 63;
constexpr std::size_t maxNameBytes = 253; // as text; 255 on the wire

Tins::DNS response( MdnsGoodbye const & goodbye ) {
   using Record = Tins::DNS::resource;
   Tins::DNS response;
   response.type( Tins::DNS::RESPONSE );
   response.authoritative_answer( 1 );
   for ( auto const & pointer : goodbye.pointers ) {
      response.add_answer( Record( pointer.name, pointer.target, Tins::DNS::PTR, internet, 0 ) );
   }
   for ( auto const & address : goodbye.addresses ) {
      response.add_answer(
         Record( goodbye.host, address.to_string(), Tins::DNS::A, internet | cacheFlush, 0 ) );
   }
   for ( auto const & address : goodbye.addresses6 ) {
      response.add_answer(
         Record( goodbye.host, address.to_string(), Tins::DNS::AAAA, internet | cacheFlush, 0 ) );
   }
   return response;
}

} // namespace

std::string parseMdnsName( std::string const & text ) {
   auto const name = text.ends_with( '.' ) ? text.substr( 0, text.size() - 1 ) : text;
   bool good = name.size() <= maxNameBytes;
   for ( std::size_t begin = 0; good && begin <= name.size(); ) {
      auto const end = std::min( name.find( '.', begin ), name.size() );
      good = end > begin && end - begin <= maxLabelBytes;
      begin = end + 1;
   }
   if ( !good ) {
      throw BadText( "\"" + text + "\" is not a name such as router.local" );
   }
   return name;
}

MdnsPointer parseMdnsPointer( std::string const & text ) {
   auto const equals = text.find( '=' );
   if ( equals == std::string::npos ) {
      throw BadText( "\"" + text + "\" is not NAME=TARGET" );
   }
   return { parseMdnsName( text.substr( 0, equals ) ), parseMdnsName( text.substr( equals + 1 ) ) };
}

Frame mdnsGoodbye( Mac const & source, Ipv4 const & address, MdnsGoodbye const & goodbye ) {
   return udpFrame( { source, address, Ipv4( "224.0.0.251" ) }, port, response( goodbye ),
                    { hopLimit, 0 } );
}

Frame mdnsGoodbye( Mac const & source, Ipv6 const & linkLocal, MdnsGoodbye const & goodbye ) {
   return udpFrame( { source, linkLocal, Ipv6( "ff02::fb" ) }, port, response( goodbye ),
                    hopLimit );
}

} // namespace Goodbye
