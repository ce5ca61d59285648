#include "goodbye/Addresses.h"

#include <bit>
#include <charconv>
#include <tins/exceptions.h>

namespace Goodbye {

namespace {

[[noreturn]] void bad( std::string const & text, char const * expected ) {
   throw BadText( "\"" + text + "\" is not " + expected );
}

} // namespace

// The packet library's from_prefix_length() treats a length of 0 like 32.
Ipv4 Ipv4Prefix::mask() const {
   U8 bytes[ 4 ]{};
   for ( unsigned bit = 0; bit < length; ++bit ) {
      bytes[ bit / 8 ] = static_cast< U8 >( bytes[ bit / 8 ] | 0x80u >> bit % 8 );
   }
   return Ipv4( std::bit_cast< U32 >( bytes ) );
}

Mac parseMac( std::string const & text ) {
   constexpr auto expected = "a MAC address such as 02:00:00:00:00:01";
   Mac mac;
   if ( text.size() != 3 * mac.size() - 1 ) {
      bad( text, expected );
   }
   for ( std::size_t i = 0; i < mac.size(); ++i ) {
      auto const * const begin = text.data() + 3 * i;
      auto const [ end, error ] = std::from_chars( begin, begin + 2, mac.begin()[ i ], 16 );
      bool const last = i + 1 == mac.size();
      if ( error != std::errc() || end != begin + 2 || ( !last && *end != ':' ) ) {
         bad( text, expected );
      }
   }
   return mac;
}

Ipv4 parseIpv4( std::string const & text ) {
   try {
      return Ipv4( text );
   } catch ( Tins::exception_base const & ) {
      bad( text, "an IPv4 address" );
   }
}

Ipv4 parseIpv4Group( std::string const & text ) {
   auto const address = parseIpv4( text );
   if ( !address.is_multicast() ) {
      bad( text, "a multicast address" );
   }
   return address;
}

Ipv6 parseIpv6( std::string const & text ) {
   try {
      return Ipv6( text );
   } catch ( Tins::exception_base const & ) {
      bad( text, "an IPv6 address" );
   }
}

Ipv4Prefix parseIpv4Prefix( std::string const & text ) {
   auto const slash = text.find( '/' );
   Ipv4Prefix prefix{ parseIpv4( text.substr( 0, slash ) ) };
   if ( slash != std::string::npos ) {
      auto const * const begin = text.data() + slash + 1;
      auto const * const end = text.data() + text.size();
      auto const result = std::from_chars( begin, end, prefix.length );
      if ( result.ec != std::errc() || result.ptr != end || prefix.length > 32 ) {
         bad( text, "an IPv4 prefix such as 192.0.2.0/24" );
      }
   }
   return prefix;
}

bool isLinkLocal( Ipv6 const & address ) {
   auto const * const bytes = address.begin();
   return bytes[ 0 ] == 0xfe && ( bytes[ 1 ] & 0xc0 ) == 0x80;
}

} // namespace Goodbye
