#include "platform/trace/Blipline.h"
#include "platform/trace/BliplineFormat.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace Blipline {

namespace {

// Reads from the front of untrusted bytes.
class Cursor {
 public:
   explicit Cursor( std::span< std::byte const > bytes ) noexcept : bytes_( bytes ) {}

   bool empty() const noexcept { return bytes_.empty(); }

   template < class T > std::optional< T > take() noexcept {
      if ( bytes_.size() < sizeof( T ) ) {
         return std::nullopt;
      }
      T value;
      std::memcpy( &value, bytes_.data(), sizeof value );
      bytes_ = bytes_.subspan( sizeof value );
      return value;
   }

   // The next `size` bytes.
   std::optional< std::span< std::byte const > > takeBytes( U64 size ) noexcept {
      if ( size > bytes_.size() ) {
         return std::nullopt;
      }
      auto const taken = bytes_.first( size );
      bytes_ = bytes_.subspan( size );
      return taken;
   }

   std::optional< std::string_view > takeText( U64 length ) noexcept {
      auto const bytes = takeBytes( length );
      if ( !bytes ) {
         return std::nullopt;
      }
      return std::string_view( reinterpret_cast< char const * >( bytes->data() ), bytes->size() );
   }

 private:
   std::span< std::byte const > bytes_;
};

} // namespace

Reader::Reader( std::span< std::byte const > memory ) {
   valid_ = readHeader( memory );
   damaged_ = damaged_ || !valid_;
}

std::chrono::nanoseconds Reader::wallTime( std::chrono::nanoseconds time ) const noexcept {
   // Unsigned, so that forged times wrap.
   return std::chrono::nanoseconds(
      static_cast< S64 >( static_cast< U64 >( time.count() ) + wallOffset_ ) );
}

bool Reader::readHeader( std::span< std::byte const > memory ) {
   Cursor cursor( memory );
   auto const header = cursor.take< Format::Header >();
   if ( !header || std::memcmp( header->magic, Format::magic, sizeof Format::magic ) != 0 ||
        header->version != Format::version || header->headerSize != sizeof( Format::Header ) ) {
      return false;
   }
   auto const area = cursor.takeBytes( header->descriptorSize );
   auto const ring = cursor.takeBytes( header->ringSize );
   if ( !area || !ring || header->descriptorEnd > area->size() || header->ringSize % 8 ||
        header->head % 8 || header->tail % 8 || header->head - header->tail > header->ringSize ) {
      return false;
   }
   damaged_ = !readDescriptions( area->first( header->descriptorEnd ) );
   ring_ = *ring;
   head_ = header->head;
   position_ = header->tail;
   lost_ = header->lost;
   wallOffset_ =
      static_cast< U64 >( header->startWall ) - static_cast< U64 >( header->startMonotonic );
   return true;
}

// Returns whether all of `area` made sense; what came before the damage is kept.
bool Reader::readDescriptions( std::span< std::byte const > area ) {
   Cursor cursor( area );
   while ( !cursor.empty() ) {
      auto const descriptor = cursor.take< Format::Descriptor >();
      if ( !descriptor || descriptor->size < sizeof( Format::Descriptor ) ) {
         return false;
      }
      auto const bytes = cursor.takeBytes( descriptor->size - sizeof( Format::Descriptor ) );
      if ( !bytes ) {
         return false;
      }
      Cursor texts( *bytes );
      auto const unit = texts.takeText( descriptor->unitLength );
      auto const signature = texts.takeText( descriptor->signatureLength );
      auto const format = texts.takeText( descriptor->formatLength );
      if ( !unit || !signature || !format ) {
         return false;
      }
      descriptions_.push_back(
         { descriptor->line, descriptor->level, *unit, *signature, *format } );
   }
   return true;
}

bool Reader::next( Line & line ) {
   for ( auto record = nextRecord(); !record.empty(); record = nextRecord() ) {
      if ( readRecord( record, line ) ) {
         return true;
      }
      damaged_ = true;
   }
   return false;
}

// The next record that is not padding; empty at the end.
std::span< std::byte const > Reader::nextRecord() {
   while ( position_ != head_ ) {
      auto const offset = position_ % ring_.size();
      auto const rest = std::min< U64 >( head_ - position_, ring_.size() - offset );
      auto const start = Cursor( ring_.subspan( offset, rest ) ).take< Format::Start >();
      if ( !start || start->size < sizeof( Format::Start ) || start->size % 8 ||
           start->size > rest ) {
         damaged_ = true;
         position_ = head_;
         return {};
      }
      position_ += start->size;
      if ( start->descriptor != Format::padding ) {
         return ring_.subspan( offset, start->size );
      }
   }
   return {};
}

bool Reader::readRecord( std::span< std::byte const > bytes, Line & line ) {
   Cursor cursor( bytes );
   auto const record = cursor.take< Format::Record >();
   if ( !record || record->start.descriptor >= descriptions_.size() ||
        !readValues( bytes.subspan( sizeof( Format::Record ) ) ) ) {
      return false;
   }
   auto const & description = descriptions_[ record->start.descriptor ];
   line.time = std::chrono::nanoseconds( record->time );
   line.unit = description.unit;
   line.line = description.line;
   line.level = description.level;
   line.text.clear();
   Twinlog::formatLine( line.text, description.signature, description.format, values_ );
   return true;
}

bool Reader::readValues( std::span< std::byte const > bytes ) {
   using Kind = Twinlog::Value::Kind;
   values_.clear();
   Cursor cursor( bytes );
   while ( !cursor.empty() ) {
      auto const header = cursor.take< Format::Value >();
      if ( !header || header->kind > static_cast< U32 >( Kind::unsignedNumber ) ) {
         return false;
      }
      auto const kind = static_cast< Kind >( header->kind );
      auto const length = Format::aligned( header->length );
      auto const filled = cursor.takeBytes( length );
      if ( !filled ) {
         return false;
      }
      Cursor value( *filled );
      if ( kind == Kind::text ) {
         auto const text = value.takeText( header->length );
         if ( !text ) {
            return false;
         }
         values_.push_back( { kind, *text } );
      } else {
         auto const number = value.take< U64 >();
         if ( !number ) {
            return false;
         }
         values_.push_back( { kind, {}, *number } );
      }
   }
   return true;
}

} // namespace Blipline
