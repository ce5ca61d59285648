#include "derivation/Mdns.h"

#include "derivation/DnsData.h"
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

struct Message {
   std::vector< DnsRecord > answers;
   std::vector< DnsRecord > others;
};

// Reads that many records. What is in their data may be a part of later names.
std::vector< DnsRecord > recordsOf( DnsReader & dns, Reader & at, U32 count ) {
   std::vector< DnsRecord > records;
   for ( ; count > 0; --count ) {
      records.push_back( dns.record( at ) );
      verifyData( dns, records.back() );
   }
   return records;
}

// Nothing for what receivers ignore: queries, other operations and errors (RFC 6762, 18).
std::optional< Message > messageOf( Packet const & packet, DnsReader & dns ) {
   constexpr U16 response = 0x8000, operationAndError = 0x780f;
   auto at = packet.message();
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
   message.answers = recordsOf( dns, at, answers );
   message.others = recordsOf( dns, at, others );
   require( at.atEnd(), Reason::badLength );
   return message;
}

// Two pointers of one name are two records.
std::string nameOf( DnsReader & dns, DnsRecord const & record ) {
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
   DnsReader dns( packet.frame, packet.message() );
   auto const message = messageOf( packet, dns );
   if ( !message || message->answers.empty() ) {
      return std::nullopt;
   }
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
