#include "platform/trace/Blipline.h"

#include "platform/quill/Assert.h"
#include "platform/quill/Exception.h"
#include "platform/trace/BliplineFormat.h"
#include "platform/trace/ShortCopy.h"
#include "platform/trace/Trace.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <utility>

namespace Blipline {

namespace {

constexpr U32 undescribed = Format::padding; // the index of a trace point without a description

Ring * theRing = nullptr;
U32 generations = 0; // 0 is that of trace points that no ring has seen

std::byte * put( std::byte * to, void const * from, std::size_t size ) noexcept {
   std::memcpy( to, from, size );
   return to + size;
}

std::byte * put( std::byte * to, std::string_view text ) noexcept {
   Twinlog::shortCopy( reinterpret_cast< char * >( to ), text.data(), text.size() );
   return to + text.size();
}

// The words of the header that change while the ring is in use.
std::atomic_ref< U64 > word( std::byte * header, std::size_t offset ) noexcept {
   return std::atomic_ref< U64 >( *reinterpret_cast< U64 * >( header + offset ) );
}

U64 readWord( std::byte const * header, std::size_t offset ) noexcept {
   return word( const_cast< std::byte * >( header ), offset ).load( std::memory_order_acquire );
}

void writeWord( std::byte * header, std::size_t offset, U64 value ) noexcept {
   word( header, offset ).store( value, std::memory_order_release );
}

bool isText( Twinlog::Value const & value ) noexcept {
   return value.kind == Twinlog::Value::Kind::text;
}

constexpr auto noLimit = std::string_view::npos;

// Of a record with these values, each text of which is cut at `limit` bytes.
std::size_t recordSize( std::span< Twinlog::Value const > values, std::size_t limit ) noexcept {
   auto size = sizeof( Format::Record );
   for ( auto const & value : values ) {
      auto const bytes = isText( value ) ? std::min( value.text.size(), limit ) : sizeof( U64 );
      size += sizeof( Format::Value ) + Format::aligned( bytes );
   }
   return size;
}

std::byte * putValue( std::byte * to, Twinlog::Value const & value, std::size_t limit ) noexcept {
   auto const kind = static_cast< U32 >( value.kind );
   if ( !isText( value ) ) {
      Format::Value const header{ kind, sizeof( U64 ) };
      return put( put( to, &header, sizeof header ), &value.number, sizeof( U64 ) );
   }
   auto const text = value.text.substr( 0, limit );
   Format::Value const header{ kind, static_cast< U32 >( text.size() ) };
   auto * const bytes = put( to, &header, sizeof header );
   put( bytes, text );
   return bytes + Format::aligned( text.size() );
}

template < class Clock > S64 nanosecondsOf() {
   return std::chrono::duration_cast< std::chrono::nanoseconds >( Clock::now().time_since_epoch() )
      .count();
}

} // namespace

// --- Ring ----------------------------------------------------------------------------------------

Ring::Ring( std::span< std::byte > memory )
    : header_( memory.data() ), generation_( ++generations ) {
   if ( memory.size() < minSize ) {
      throw Quill::RangeException( "trace ring of " + std::to_string( memory.size() ) +
                                   " bytes is smaller than " + std::to_string( minSize ) );
   }
   VALEN_ASSERT( reinterpret_cast< std::uintptr_t >( header_ ) % 8 == 0 );
   auto const areas = memory.subspan( sizeof( Format::Header ) );
   auto const descriptorSize = areas.size() / 8 & ~std::size_t{ 7 };
   descriptors_ = areas.first( descriptorSize );
   ring_ = areas.subspan( descriptorSize, ( areas.size() - descriptorSize ) & ~std::size_t{ 7 } );

   std::memset( header_, 0, sizeof( Format::Header ) );
   Format::Header header{};
   header.version = Format::version;
   header.headerSize = sizeof header;
   header.descriptorSize = descriptors_.size();
   header.ringSize = ring_.size();
   header.startMonotonic = nanosecondsOf< std::chrono::steady_clock >();
   header.startWall = nanosecondsOf< std::chrono::system_clock >();
   std::memcpy( header_, &header, sizeof header );
   // Last, so that a reader does not take a half-written header for valid.
   std::atomic_thread_fence( std::memory_order_release );
   std::memcpy( header_, Format::magic, sizeof Format::magic );
}

void Ring::write( Quill::TracePoint & point, std::chrono::nanoseconds time,
                  std::span< Twinlog::Value const > values ) noexcept {
   if ( point.ringGeneration != generation_ ) [[unlikely]] {
      describe( point );
   }
   auto limit = noLimit;
   auto size = recordSize( values, limit );
   if ( size > ring_.size() / 2 ) [[unlikely]] {
      limit = textLimit( values.size() );
      size = recordSize( values, limit );
   }
   if ( point.ringIndex == undescribed || size > ring_.size() / 2 ) [[unlikely]] {
      return lose();
   }
   auto * to = reserve( size );
   Format::Record const record{ { static_cast< U32 >( size ), point.ringIndex }, time.count() };
   to = put( to, &record, sizeof record );
   for ( auto const & value : values ) {
      to = putValue( to, value, limit );
   }
   advance( head_, size );
   writeWord( header_, offsetof( Format::Header, head ), head_.count );
}

// Gives `point` its index, and writes its description unless the area is full.
void Ring::describe( Quill::TracePoint & point ) noexcept {
   std::string_view const unit( point.unit );
   auto const & signature = point.signature;
   auto const & format = point.format;
   auto const size = Format::aligned( sizeof( Format::Descriptor ) + unit.size() +
                                      signature.size() + format.size() );
   point.ringGeneration = generation_;
   point.ringIndex = undescribed;
   if ( size > descriptors_.size() - descriptorEnd_ ) {
      return;
   }
   Format::Descriptor const descriptor{ static_cast< U32 >( size ),
                                        static_cast< U32 >( point.line ),
                                        point.level,
                                        static_cast< U32 >( unit.size() ),
                                        static_cast< U32 >( signature.size() ),
                                        static_cast< U32 >( format.size() ) };
   auto * const to = put( descriptors_.data() + descriptorEnd_, &descriptor, sizeof descriptor );
   put( put( put( to, unit ), signature ), format );
   descriptorEnd_ += size;
   writeWord( header_, offsetof( Format::Header, descriptorEnd ), descriptorEnd_ );
   point.ringIndex = descriptorCount_++;
}

void Ring::lose() noexcept {
   writeWord( header_, offsetof( Format::Header, lost ), ++lost_ );
}

// The longest text of a line that takes too much of the ring: all its values share half of the ring.
std::size_t Ring::textLimit( std::size_t values ) const noexcept {
   auto const most = ring_.size() / 2;
   auto const fixed = sizeof( Format::Record ) + values * sizeof( Format::Value );
   return fixed < most ? ( most - fixed ) / values & ~std::size_t{ 7 } : 0;
}

// Where a record of `size` bytes goes. Pads the end of the ring and makes room.
std::byte * Ring::reserve( std::size_t size ) noexcept {
   auto const rest = ring_.size() - head_.offset;
   auto const skipped = size <= rest ? 0 : rest;
   makeRoom( skipped + size );
   if ( skipped ) {
      Format::Start const padding{ static_cast< U32 >( skipped ), Format::padding };
      put( ring_.data() + head_.offset, &padding, sizeof padding );
      advance( head_, skipped );
   }
   return ring_.data() + head_.offset;
}

// Gives up the oldest records until `size` bytes are free.
void Ring::makeRoom( std::size_t size ) noexcept {
   if ( head_.count + size - tail_.count <= ring_.size() ) {
      return;
   }
   do {
      U32 oldest;
      std::memcpy( &oldest, ring_.data() + tail_.offset, sizeof oldest );
      if ( oldest % 8 || oldest == 0 || oldest > head_.count - tail_.count ) {
         tail_ = head_; // overwritten from outside: nothing here can be trusted
         break;
      }
      advance( tail_, oldest );
   } while ( head_.count + size - tail_.count > ring_.size() );
   writeWord( header_, offsetof( Format::Header, tail ), tail_.count );
   std::atomic_thread_fence( std::memory_order_release ); // before anything is overwritten
}

void Ring::advance( Position & position, std::size_t size ) const noexcept {
   position.count += size;
   position.offset += size;
   if ( position.offset >= ring_.size() ) {
      position.offset -= ring_.size();
   }
}

// --- The process's ring --------------------------------------------------------------------------

Ring * ringIs( Ring * ring ) noexcept {
   return std::exchange( theRing, ring );
}

Ring * ring() noexcept {
   return theRing;
}

std::vector< std::byte > snapshot( std::span< std::byte const > live ) {
   if ( live.size() < sizeof( Format::Header ) ) {
      return {};
   }
   // What is written after the head was read is left out; what is overwritten before the tail is
   // read again has been given up by then.
   auto const descriptorEnd = readWord( live.data(), offsetof( Format::Header, descriptorEnd ) );
   auto const head = readWord( live.data(), offsetof( Format::Header, head ) );
   std::vector< std::byte > copy( live.begin(), live.end() );
   std::atomic_thread_fence( std::memory_order_acquire );
   auto const tail = readWord( live.data(), offsetof( Format::Header, tail ) );
   writeWord( copy.data(), offsetof( Format::Header, descriptorEnd ), descriptorEnd );
   writeWord( copy.data(), offsetof( Format::Header, head ), head );
   writeWord( copy.data(), offsetof( Format::Header, tail ), std::min( tail, head ) );
   return copy;
}

} // namespace Blipline
