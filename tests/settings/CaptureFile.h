// Capture files, written byte by byte.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Settings::Test {

// Little-endian numbers.
inline std::string numbers( std::vector< std::uint32_t > const & values ) {
   std::string bytes;
   for ( auto const value : values ) {
      for ( int shift = 0; shift < 32; shift += 8 ) {
         bytes += static_cast< char >( value >> shift & 0xff );
      }
   }
   return bytes;
}

// A pcap file. In each frame, the last `cut` bytes were not captured.
inline std::string pcapFile( std::vector< std::string > const & frames, std::uint32_t linkType = 1,
                             std::uint32_t cut = 0 ) {
   auto bytes = numbers( { 0xa1b2c3d4, 0x00040002, 0, 0, 65535, linkType } );
   for ( auto const & frame : frames ) {
      auto const length = static_cast< std::uint32_t >( frame.size() );
      bytes += numbers( { 0, 0, length, length + cut } ) + frame;
   }
   return bytes;
}

// A pcapng file of one section, one interface and frames in "enhanced packet" blocks.
inline std::string pcapngFile( std::vector< std::string > const & frames ) {
   auto bytes = numbers( { 0x0a0d0d0a, 28, 0x1a2b3c4d, 1, 0xffffffff, 0xffffffff, 28 } ) +
                numbers( { 1, 20, 1, 65535, 20 } );
   for ( auto const & frame : frames ) {
      auto const length = static_cast< std::uint32_t >( frame.size() );
      auto const padding = ( 4 - length % 4 ) % 4;
      auto const total = 32 + length + padding;
      bytes += numbers( { 6, total, 0, 0, 0, length, length } ) + frame +
               std::string( padding, '\0' ) + numbers( { total } );
   }
   return bytes;
}

} // namespace Settings::Test
