// Twinlog: the converter between streamed values and text. A format's "%s" and "%x" placeholders
// are replaced, in order, by the values: "%s" by the display form, "%x" by the number in
// hexadecimal. A placeholder without a value stays as it is; a value without one is left out.
#pragma once

#include "platform/quill/Display.h"
#include "platform/quill/Int.h"
#include "platform/quill/String.h"

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace Twinlog {

// One streamed value. Text is borrowed from the caller for the length of the trace call.
struct Value {
   enum class Kind : U8 { text, number, unsignedNumber };

   Kind kind;
   std::string_view text;
   U64 number = 0;
};

// A text under construction. Allocates only when it is longer than a line nearly ever is.
class Text {
 public:
   static constexpr std::size_t ownSize = 1024; // bytes that need no allocation

   Text() = default;
   Text( Text const & ) = delete;
   Text & operator=( Text const & ) = delete;

   void append( std::string_view bytes ) noexcept;
   void append( char byte ) noexcept {
      require( 1 );
      bytes_[ length_++ ] = byte;
   }
   void append( Value const & value, bool hexadecimal ) noexcept;
   void clear() noexcept { length_ = 0; }
   std::string_view view() const noexcept { return { bytes_, length_ }; }

 private:
   // Makes room for that many more bytes.
   void require( std::size_t bytes ) noexcept {
      if ( bytes > size_ - length_ ) [[unlikely]] {
         grow( bytes );
      }
   }
   void grow( std::size_t bytes );

   char * bytes_ = own_; // filled as far as length_
   std::size_t length_ = 0;
   std::size_t size_ = ownSize;
   std::unique_ptr< char[] > allocated_;
   char own_[ ownSize ];
};

void format( Text & text, std::string_view format, std::span< Value const > values ) noexcept;

// A whole line: the function's signature, ": " and the message.
void formatLine( Text & text, std::string_view signature, std::string_view format,
                 std::span< Value const > values ) noexcept;

// Whether a traced argument is streamed as it is: numbers by value, names and texts by their bytes.
// Handles and values with a display form of their own are formatted by the writer.
template < class T >
concept Streamable = std::is_enum_v< T > || std::is_integral_v< T > ||
   std::is_convertible_v< T, std::string_view > || std::is_base_of_v< Quill::StringHandle, T >;

// What the streamed form of an argument needs while it is borrowed.
struct NoStorage {};
template < class T > using Storage = std::conditional_t< Streamable< T >, NoStorage, std::string >;

// The streamed form of a traced argument.
template < class T > Value valueOf( T const & argument, Storage< T > && storage ) {
   if constexpr ( std::is_same_v< T, bool > ) {
      return { Value::Kind::text, argument ? "true" : "false" };
   } else if constexpr ( std::is_enum_v< T > ) {
      return { Value::Kind::unsignedNumber, {}, static_cast< U64 >( argument ) };
   } else if constexpr ( std::is_integral_v< T > ) {
      return { std::is_signed_v< T > ? Value::Kind::number : Value::Kind::unsignedNumber,
               {},
               static_cast< U64 >( argument ) };
   } else if constexpr ( std::is_convertible_v< T, std::string_view > ) {
      return { Value::Kind::text, std::string_view( argument ) };
   } else if constexpr ( std::is_base_of_v< Quill::StringHandle, T > ) {
      return { Value::Kind::text, argument.view() };
   } else {
      storage = Quill::display( argument );
      return { Value::Kind::text, storage };
   }
}

} // namespace Twinlog
