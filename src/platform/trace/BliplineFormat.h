// The memory layout of a Blipline ring; only for its writer and its reader.
//
//   Header | descriptor area | ring of records
//
// Everything begins at a multiple of 8 bytes. Head and tail count the bytes ever written to the
// ring and ever dropped again; what is between them, modulo the ring's size, is valid. A
// record never wraps: one that does not fit before the ring's end is preceded by padding up to it.
//
// The memory can be read at any moment, that of a crash included. The writer therefore moves the
// tail before it overwrites, and the head after it has written; a descriptor is counted by
// descriptorEnd before the first record names it.
#pragma once

#include "platform/quill/Int.h"

#include <cstddef>

namespace Blipline::Format {

inline constexpr char magic[ 8 ] = { 'B', 'L', 'I', 'P', 'L', 'I', 'N', 'E' };
inline constexpr U32 version = 1;

struct Header {
   char magic[ 8 ];
   U32 version;
   U32 headerSize;
   U64 descriptorSize; // bytes of the descriptor area
   U64 ringSize;       // bytes of the ring
   S64 startMonotonic; // both clocks when the ring was made, ns: turns a record's time into a date
   S64 startWall;
   U64 descriptorEnd; // bytes of the descriptor area in use
   U64 tail;
   U64 head;
   U64 lost; // records that were not written
};

// One trace point, followed by its texts: unit, signature, format. Records name it by its place in
// the area, counted from 0.
struct Descriptor {
   U32 size; // with the texts, a multiple of 8
   U32 line;
   U32 level;
   U32 unitLength;
   U32 signatureLength;
   U32 formatLength;
};

// What padding and every line begin with.
struct Start {
   U32 size;       // of the whole, a multiple of 8
   U32 descriptor; // or `padding`
};

// One line, followed by its values.
struct Record {
   Start start;
   S64 time; // ns on the monotonic clock
};

// One value, followed by its bytes: of a text or of a number, filled up to a multiple of 8.
struct Value {
   U32 kind; // Twinlog::Value::Kind
   U32 length;
};

inline constexpr U32 padding = ~0u;

constexpr std::size_t aligned( std::size_t size ) noexcept {
   return ( size + 7 ) & ~std::size_t{ 7 };
}

static_assert( sizeof( Header ) % 8 == 0 && sizeof( Descriptor ) % 8 == 0 );
static_assert( sizeof( Start ) == 8 && sizeof( Record ) == 16 && sizeof( Value ) == 8 );

} // namespace Blipline::Format
