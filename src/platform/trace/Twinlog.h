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
   void append( Value const & value, bool hexadecimal ) noexcept;
   std::string_view view() const noexcept { return { buffer_, length_ }; }

 private:
   std::size_t length_ = 0;
   char buffer_[ capacity ];
};

void format( Text & text, std::string_view format, std::span< Value const > values ) noexcept;

// The streamed form of a traced argument. Names and texts lend their bytes; handles and values with
// a display form of their own are formatted here, into `storage`.
template < class T > Value valueOf( T const & argument, std::string & storage ) {
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
