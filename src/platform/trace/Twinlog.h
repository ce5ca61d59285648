// Twinlog: the converter between streamed values and text. A format's "%s" and "%x" placeholders
// are replaced, in order, by the values: "%s" by the display form, "%x" by the number in
// hexadecimal. A placeholder without a value stays as it is; a value without one is left out.
#pragma once

#include "platform/quill/Display.h"
#include "platform/quill/Int.h"
#include "platform/quill/String.h"

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

// Appends to a buffer of fixed size and cuts what does not fit, so that tracing never allocates.
class Text {
 public:
   static constexpr std::size_t capacity = 1024;

   void append( std::string_view bytes ) noexcept;
   void append( char byte ) noexcept {
      buffer_[ length_ ] = byte;
      length_ += length_ < capacity;
   }
   void append( Value const & value, bool hexadecimal ) noexcept;
   void clear() noexcept { length_ = 0; }
   bool full() const noexcept { return length_ == capacity; }
   std::string_view view() const noexcept { return { buffer_, length_ }; }

 private:
   std::size_t length_ = 0;
   // Filled as far as length_. What is over takes a byte or a number before it is cut.
   char buffer_[ capacity + 24 ];
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
