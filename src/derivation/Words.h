// What is in a frame, in words. A frame may have any bytes; the words are printable.
#pragma once

#include "platform/quill/Int.h"

#include <string>
#include <string_view>

namespace Derivation {

std::string macText( std::string_view bytes );  // 6 bytes: "02:00:00:00:00:01"
std::string ipv4Text( std::string_view bytes ); // 4 bytes: "192.0.2.1"
std::string ipv6Text( std::string_view bytes ); // 16 bytes, as RFC 5952 has it: "fe80::1"
std::string ipText( std::string_view bytes );   // either
std::string hexText( std::string_view bytes );  // "0a1b"
// Printable ASCII as it is, all else in hexadecimal.
std::string nameText( std::string_view bytes );

// "ttl 120 -> 0"
std::string changeText( std::string_view what, U32 from, U32 to );
// "ttl 120"
std::string valueText( std::string_view what, U32 value );
// "1 route", "2 routes"
std::string countText( std::size_t count, std::string_view one );

} // namespace Derivation
