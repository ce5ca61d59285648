// Reads the fields of a frame in their order, never beyond its end, and refuses it.
#pragma once

#include "platform/quill/Int.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace Derivation {

// Why a frame is refused. These are all texts: each is counted.
namespace Reason {
inline constexpr char const * cutOff = "it ends too early";
inline constexpr char const * badLength = "a length is wrong";
inline constexpr char const * badChecksum = "the checksum is wrong";
inline constexpr char const * fragment = "it is a fragment";
inline constexpr char const * tlvBeyondEnd = "a TLV goes beyond the end";
inline constexpr char const * tlvMissing = "a TLV is missing, or in the wrong place";
inline constexpr char const * badVersion = "the version is unknown";
inline constexpr char const * badHopLimit = "the hop limit is not 255";
inline constexpr char const * badValue = "a field has a value that is not allowed";
} // namespace Reason

// Ends the parsing of a frame. derive() catches it.
class Refused {
 public:
   explicit Refused( char const * reason ) : reason_( reason ) {}
   char const * reason() const { return reason_; }

 private:
   char const * reason_;
};

// Throws Refused if the condition does not hold.
inline void require( bool condition, char const * reason ) {
   if ( !condition ) {
      throw Refused( reason );
   }
}

// Positions are those in the frame, so that a field that was read can be found again.
class Reader {
 public:
   // Reads the bytes of the frame from `at` to before `end`.
   Reader( std::string_view frame, std::size_t at, std::size_t end );

   std::size_t at() const { return at_; }
   std::size_t left() const { return end_ - at_; }
   bool atEnd() const { return at_ == end_; }

   // The next bytes, in network byte order. Throw Refused if they are not there.
   U8 u8() { return static_cast< U8 >( number( 1 ) ); }
   U16 u16() { return static_cast< U16 >( number( 2 ) ); }
   U32 u32() { return number( 4 ); }
   std::string_view bytes( std::size_t count );
   void skip( std::size_t count ) { bytes( count ); }
   // Reads the next bytes; `reason` if they are not there.
   Reader part( std::size_t count, char const * reason = Reason::cutOff );

 private:
   U32 number( std::size_t count );

   std::string_view frame_; // up to the end
   std::size_t at_;
   std::size_t end_;
};

// The numbers at a position that is known to be inside.
U8 u8At( std::string_view frame, std::size_t at );
U16 u16At( std::string_view frame, std::size_t at );

// Puts a number of that many bytes at a position that is known to be inside.
void putNumber( std::string & frame, std::size_t at, std::size_t bytes, U32 value );

} // namespace Derivation
