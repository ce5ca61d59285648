// Makes a goodbye of a packet: sets some of its fields, leaves some of its bytes out, and then sets the lengths and
// checksums right. All else stays.
#pragma once

#include "derivation/Checksums.h"
#include "derivation/Heard.h"

namespace Derivation {

// All positions are those in the packet, whatever was left out.
class Editor {
 public:
   explicit Editor( Packet const & packet ) : packet_( packet ) {}

   void u8( std::size_t at, U8 value ) { number( at, 1, value ); }
   void u16( std::size_t at, U16 value ) { number( at, 2, value ); }
   void u32( std::size_t at, U32 value ) { number( at, 4, value ); }
   // Leaves out bytes of the message, which no other edit touches. From the front to the back.
   void remove( std::size_t at, std::size_t bytes );
   // The message has this checksum. Its hole is before what is left out.
   void fixChecksum( Checksum const & checksum ) { checksums_.push_back( checksum ); }

   // Sets the goodbye and what it replaces. The layers below the message are set right.
   void finish( Heard & heard );

 private:
   void number( std::size_t at, std::size_t bytes, U32 value );
   void shorten();
   void cut();
   void sort();
   // Where a position of the packet is in the goodbye.
   std::size_t moved( std::size_t at ) const;

   Packet packet_;
   std::vector< Replaced > replaced_;
   std::vector< Checksum > checksums_;
};

} // namespace Derivation
