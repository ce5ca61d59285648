#include "derivation/Mdns.h"

#include "derivation/DnsReader.h"
#include "derivation/Editor.h"
#include "derivation/Parts.h"
#include "derivation/Words.h"

#include <algorithm>

namespace Derivation {

namespace {

enum Type : U16 { a = 1, ptr = 12, txt = 16, aaaa = 28, srv = 33, opt = 41, nsec = 47 };

std::string typeText( U16 type ) {
   switch ( type ) {
   case a:
      return "A";
   case ptr:
      return "PTR";
   case txt:
      return "TXT";
   case aaaa:
      return "AAAA";
   case srv:
      return "SRV";
   case nsec:
      return "NSEC";
   default:
      return "TYPE" + std::to_string( type );
   }
}

// RFC 1035, RFC 2782, RFC 3596. Other types are taken as they are.
void verifyData( DnsReader const & dns, DnsRecord const & record ) {
   auto data = record.data;
   switch ( record.type ) {
   case a:
      data.skip( 4 );
      break;
   case aaaa:
      data.skip( 16 );
      break;
   case srv:
      data.skip( 2 + 2 + 2 ); // the priority, the weight and the port
      [[fallthrough]];
   case ptr:
      dns.name( data );
      break;
   case txt:
      do {
         data.skip( data.u8() );
      } while ( !data.atEnd() );
      break;
   default:
      return;
   }
   require( data.atEnd(), Reason::badLength );
}

struct Message {
   std::vector< DnsRecord > answers;
   std::vector< DnsRecord > others;
};

// Nothing for what receivers ignore: queries, other operations and errors (RFC 6762, 18).
std::optional< Message > messageOf( Packet const & packet ) {
   constexpr U16 response = 0x8000, operationAndError = 0x780f;
   auto at = packet.message();
   DnsReader const dns( packet.frame, at );
   at.skip( 2 ); // the id
   auto const flags = at.u16();
   if ( ( flags & response ) == 0 || ( flags & operationAndError ) != 0 ) {
      return std::nullopt;
   }
   // Responses are sent from the port that they are sent to (RFC 6762, 11).
   require( u16At( packet.frame, packet.layers.udp ) == packet.layers.number, Reason::badValue );
   auto const questions = at.u16();
   auto const answers = at.u16();
   auto const others = U32{ at.u16() } + at.u16();
   for ( U32 i = 0; i < questions; ++i ) {
      dns.name( at );
      at.skip( 2 + 2 ); // the type and the class
   }
   Message message;
   for ( U32 i = 0; i < answers; ++i ) {
      message.answers.push_back( dns.record( at ) );
   }
   for ( U32 i = 0; i < others; ++i ) {
      message.others.push_back( dns.record( at ) );
   }
   require( at.atEnd(), Reason::badLength );
   for ( auto const & record : message.answers ) {
      verifyData( dns, record );
   }
   for ( auto const & record : message.others ) {
      verifyData( dns, record );
   }
   return message;
}

// Two pointers of one name are two records.
std::string nameOf( DnsReader const & dns, DnsRecord const & record ) {
   auto name = record.name + " " + typeText( record.type );
   if ( record.type == ptr ) {
      auto target = record.data;
      name += " " + dns.name( target );
   }
   return name;
}

// OPT is no record: its time to live has flags.
void forget( Editor & editor, std::vector< DnsRecord > const & records ) {
   for ( auto const & record : records ) {
      if ( record.type != opt && record.ttl != 0 ) {
         editor.u32( record.ttlAt, 0 );
      }
   }
}

} // namespace

std::optional< Heard > mdns( Packet const & packet ) {
   auto const message = messageOf( packet );
   if ( !message || message->answers.empty() ) {
      return std::nullopt;
   }
   DnsReader const dns( packet.frame, packet.message() );
   std::vector< std::string > names;
   U32 greatest = 0;
   for ( auto const & record : message->answers ) {
      require( record.type != opt, Reason::badValue );
      names.push_back( nameOf( dns, record ) );
      greatest = std::max( greatest, record.ttl );
   }
   constexpr char const * what = "ttl";
   Heard heard;
   heard.speaker = "host " + ipText( packet.source() );
   heard.part = partOf( packet, std::move( names ) );
   heard.says = valueText( what, greatest );
   heard.holdTime = std::chrono::seconds( greatest );
   heard.leaves = greatest == 0;
   if ( !heard.leaves ) {
      Editor editor( packet );
      forget( editor, message->answers );
      forget( editor, message->others );
      editor.finish( heard );
      heard.change = changeText( what, greatest, 0 );
   }
   return heard;
}

} // namespace Derivation
