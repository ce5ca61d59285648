#include "derivation/Hsrp.h"

#include "derivation/Editor.h"
#include "derivation/Words.h"

namespace Derivation {

namespace {

enum Opcode : U8 { hello = 0, resign = 2 };
enum Type : U8 { groupState = 1, md5 = 4 };
constexpr std::size_t groupStateBytes = 40;
constexpr U8 active1 = 16, active2 = 6; // the state, in each version

struct Message {
   std::size_t opcodeAt = 0;
   U8 opcode = 0;
   bool isActive = false;
   unsigned group = 0;
   std::chrono::milliseconds holdTime{};
   bool hasMd5 = false;
};

// The TLVs after the state of the group.
void readRest( Reader & message, Message & read ) {
   while ( !message.atEnd() ) {
      auto const type = message.u8();
      auto const length = message.u8();
      message.part( length, Reason::tlvBeyondEnd );
      require( type != groupState, Reason::tlvMissing );
      read.hasMd5 = read.hasMd5 || type == md5;
   }
}

Message readVersion1( Reader message ) {
   constexpr std::size_t passwordBytes = 8, addressBytes = 4;
   Message read;
   message.skip( 1 ); // the version
   read.opcodeAt = message.at();
   read.opcode = message.u8();
   read.isActive = message.u8() == active1;
   message.skip( 1 ); // the time between hellos
   read.holdTime = std::chrono::seconds( message.u8() );
   message.skip( 1 ); // the priority
   read.group = message.u8();
   message.skip( 1 + passwordBytes + addressBytes );
   readRest( message, read );
   return read;
}

Message readVersion2( Reader message ) {
   constexpr U8 version = 2;
   Message read;
   message.skip( 1 ); // the type
   require( message.u8() == groupStateBytes, Reason::badLength );
   auto state = message.part( groupStateBytes, Reason::tlvBeyondEnd );
   require( state.u8() == version, Reason::badVersion );
   read.opcodeAt = state.at();
   read.opcode = state.u8();
   read.isActive = state.u8() == active2;
   state.skip( 1 ); // of IP
   read.group = state.u16();
   state.skip( 6 + 4 + 4 ); // the identifier, the priority, the time between hellos
   read.holdTime = std::chrono::milliseconds( state.u32() );
   readRest( message, read );
   return read;
}

std::string opcodeText( U8 opcode ) {
   return opcode == resign ? "resign" : "hello";
}

} // namespace

std::optional< Heard > hsrp( Packet const & packet ) {
   auto message = packet.message();
   auto const kind = message.u8();
   require( kind == 0 || kind == groupState, Reason::badVersion );
   message.skip( kind == 0 ? 0 : 2 );
   if ( auto const opcode = message.u8();
        opcode != hello && opcode != resign ) { // which may have other formats
      return std::nullopt;
   }
   auto const read =
      kind == 0 ? readVersion1( packet.message() ) : readVersion2( packet.message() );
   require( read.holdTime.count() != 0, Reason::badValue );

   Heard heard;
   heard.speaker = valueText( "group", read.group ) + " of " + ipText( packet.source() );
   heard.says = opcodeText( read.opcode ) + ( read.isActive ? ", active" : ", not active" );
   heard.holdTime = read.holdTime;
   heard.leaves = read.opcode == resign;
   if ( heard.leaves ) {
      return heard;
   }
   if ( !read.isActive ) {
      heard.whyNot = "only the active router resigns";
   } else if ( read.hasMd5 ) {
      heard.whyNot = "authenticated with MD5";
   } else {
      Editor editor( packet );
      editor.u8( read.opcodeAt, resign );
      editor.finish( heard );
      heard.change = opcodeText( hello ) + " -> " + opcodeText( resign );
   }
   return heard;
}

} // namespace Derivation
