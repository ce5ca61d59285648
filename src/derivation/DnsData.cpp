#include "derivation/DnsData.h"

#include <algorithm>

namespace Derivation {

namespace {

struct Format {
   U16 type;
   // What follows each other:
   //   1 to 9   that many bytes
   //   n        a name
   //   s        a string, after its length
   //   t        strings up to the end, at least one
   //   m        the types that there are (RFC 4034, 4.1.2), up to the end
   //   o        options or parameters with a number, up to the end
   //   x        any bytes up to the end
   char const * fields;
};

// RFC 1035 for the first 16; the others are from the registry of types.
constexpr Format formats[] = {
   { 1, "4" },      // A
   { 2, "n" },      // NS
   { 3, "n" },      // MD
   { 4, "n" },      // MF
   { 5, "n" },      // CNAME
   { 6, "nn488" },  // SOA
   { 7, "n" },      // MB
   { 8, "n" },      // MG
   { 9, "n" },      // MR
   { 11, "5x" },    // WKS
   { 12, "n" },     // PTR
   { 13, "ss" },    // HINFO
   { 14, "nn" },    // MINFO
   { 15, "2n" },    // MX
   { 16, "t" },     // TXT
   { 17, "nn" },    // RP
   { 18, "2n" },    // AFSDB
   { 19, "s" },     // X25
   { 20, "t" },     // ISDN
   { 21, "2n" },    // RT
   { 23, "n" },     // NSAP-PTR
   { 24, "99nx" },  // SIG
   { 25, "4x" },    // KEY
   { 26, "2nn" },   // PX
   { 27, "sss" },   // GPOS
   { 28, "88" },    // AAAA
   { 29, "88" },    // LOC
   { 30, "nx" },    // NXT
   { 33, "6n" },    // SRV
   { 35, "4sssn" }, // NAPTR
   { 36, "2n" },    // KX
   { 37, "5x" },    // CERT
   { 39, "n" },     // DNAME
   { 41, "o" },     // OPT
   { 43, "4x" },    // DS
   { 44, "2x" },    // SSHFP
   { 46, "99nx" },  // RRSIG
   { 47, "nm" },    // NSEC
   { 48, "4x" },    // DNSKEY
   { 50, "4ssm" },  // NSEC3
   { 51, "4s" },    // NSEC3PARAM
   { 52, "3x" },    // TLSA
   { 53, "3x" },    // SMIMEA
   { 59, "4x" },    // CDS
   { 60, "4x" },    // CDNSKEY
   { 62, "6m" },    // CSYNC
   { 63, "6x" },    // ZONEMD
   { 64, "2no" },   // SVCB
   { 65, "2no" },   // HTTPS
   { 99, "t" },     // SPF
   { 104, "55" },   // NID
   { 105, "6" },    // L32
   { 106, "55" },   // L64
   { 107, "2n" },   // LP
   { 108, "6" },    // EUI48
   { 109, "8" },    // EUI64
   { 256, "4x" },   // URI
   { 257, "1sx" },  // CAA
};

void verifyTypes( Reader & data ) {
   constexpr U8 mostBytes = 32;
   while ( !data.atEnd() ) {
      data.skip( 1 ); // the high byte of these types
      auto const bytes = data.u8();
      require( bytes >= 1 && bytes <= mostBytes, Reason::badLength );
      data.skip( bytes );
   }
}

void verifyOptions( Reader & data ) {
   while ( !data.atEnd() ) {
      data.skip( 2 ); // the number
      data.part( data.u16(), Reason::tlvBeyondEnd );
   }
}

void verifyField( char field, DnsReader & dns, Reader & data ) {
   switch ( field ) {
   case 'n':
      dns.name( data );
      return;
   case 's':
      return data.skip( data.u8() );
   case 't':
      do {
         data.skip( data.u8() );
      } while ( !data.atEnd() );
      return;
   case 'm':
      return verifyTypes( data );
   case 'o':
      return verifyOptions( data );
   case 'x':
      return data.skip( data.left() );
   default:
      data.skip( static_cast< std::size_t >( field - '0' ) );
   }
}

} // namespace

void verifyData( DnsReader & dns, DnsRecord const & record ) {
   constexpr U16 firstOfQueries = 128, lastOfQueries = 255; // RFC 6895, 3.1
   require( record.type != 0 && ( record.type < firstOfQueries || record.type > lastOfQueries ),
            Reason::badValue );
   auto const * const found =
      std::find_if( std::begin( formats ), std::end( formats ),
                    [ & ]( auto const & format ) { return format.type == record.type; } );
   if ( found == std::end( formats ) ) {
      return;
   }
   auto data = record.data;
   for ( char const field : std::string_view( found->fields ) ) {
      verifyField( field, dns, data );
   }
   require( data.atEnd(), Reason::badLength );
}

} // namespace Derivation
