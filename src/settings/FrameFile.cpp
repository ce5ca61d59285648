#include "settings/FrameFile.h"

#include "settings/Counted.h"
#include "settings/Hex.h"
#include "settings/Limits.h"
#include "settings/OpenFile.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <memory>
#include <pcap/pcap.h>

namespace Settings {

namespace {

[[noreturn]] void reject( std::string const & file, std::string const & text ) {
   throw FrameError( file + ": " + text );
}

[[noreturn]] void rejectCount( std::string const & file ) {
   reject( file, "more than " + std::to_string( maxFramesOfText ) + " frames, which is the limit" );
}

// Frame numbers, from 1.
using Numbers = std::vector< std::size_t >;

// Removes the number at the front of `text` and returns it; 0 when `text` does not begin with one.
std::size_t takeNumber( std::string_view & text ) {
   std::size_t number = 0;
   auto const [ end, code ] = std::from_chars( text.data(), text.data() + text.size(), number );
   text.remove_prefix( static_cast< std::size_t >( end - text.data() ) );
   return code == std::errc() ? number : 0;
}

bool take( std::string_view & text, char character ) {
   bool const there = text.starts_with( character );
   text.remove_prefix( there ? 1 : 0 );
   return there;
}

// The numbers in a text such as "1,3-5".
Numbers numbersOf( std::string const & file, std::string_view text ) {
   auto const whole = std::string( text );
   Numbers numbers;
   do {
      auto const first = takeNumber( text );
      auto const last = take( text, '-' ) ? takeNumber( text ) : first;
      if ( first == 0 || last < first || !( text.empty() || text.starts_with( ',' ) ) ) {
         reject( file, "frame numbers \"" + whole +
                          "\"; expected numbers from 1 and ranges, such as \"1,3-5\"" );
      }
      if ( last - first >= maxFramesOfText || numbers.size() + last - first >= maxFramesOfText ) {
         rejectCount( file );
      }
      for ( auto number = first; number <= last; ++number ) {
         numbers.push_back( number );
      }
   } while ( take( text, ',' ) );
   return numbers;
}

using Capture = std::unique_ptr< pcap_t, void ( * )( pcap_t * ) >;

Capture openCapture( std::string const & file ) {
   static constexpr char const * expected = "; expected a pcap or pcapng file";
   try {
      auto opened = openForReading( file );
      char text[ PCAP_ERRBUF_SIZE ] = "";
      Capture capture( pcap_fopen_offline( opened.get(), text ), pcap_close );
      if ( !capture ) {
         reject( file, ( *text ? std::string( text ) : "not readable" ) + expected );
      }
      [[maybe_unused]] auto const closedByPcap = opened.release();
      return capture;
   } catch ( CannotOpen const & e ) {
      reject( file,
              ( e.why == CannotOpen::Why::missing ? e.text : "not a regular file" ) + expected );
   }
}

Capture openEthernetCapture( std::string const & file ) {
   auto capture = openCapture( file );
   auto const type = pcap_datalink( capture.get() );
   if ( type != DLT_EN10MB ) {
      auto const * const name = pcap_datalink_val_to_name( type );
      reject( file, "link type " + ( name ? std::string( name ) : std::to_string( type ) ) +
                       "; expected EN10MB, Ethernet" );
   }
   return capture;
}

std::string frameOf( std::string const & file, std::size_t number, pcap_pkthdr const & header,
                     unsigned char const * bytes ) {
   auto const name = "frame " + std::to_string( number ) + " has ";
   if ( header.caplen < header.len ) {
      reject( file, name + "only " + std::to_string( header.caplen ) + " of its " +
                       std::to_string( header.len ) + " bytes; expected a complete capture" );
   }
   if ( header.caplen < minFrameBytes ) {
      reject( file, name + counted( header.caplen, "byte" ) + "; expected at least " +
                       std::to_string( minFrameBytes ) + ", an Ethernet header" );
   }
   return std::string( reinterpret_cast< char const * >( bytes ), header.caplen );
}

void requireBytes( std::string const & file, std::size_t bytes ) {
   if ( bytes > maxConfigFrameBytes ) {
      reject( file, "more than " + std::to_string( maxConfigFrameBytes ) +
                       " bytes in frames, which is the limit" );
   }
}

[[noreturn]] void rejectContent( std::string const & file, pcap_t & capture ) {
   reject( file, std::string( pcap_geterr( &capture ) ) + "; expected a pcap or pcapng file" );
}

// The frames of the sorted `numbers`, each once.
std::map< std::size_t, std::string > readFrames( std::string const & file,
                                                 Numbers const & numbers ) {
   auto const capture = openEthernetCapture( file );
   std::map< std::size_t, std::string > frames;
   std::size_t count = 0;
   std::size_t bytesRead = 0;
   for ( auto const number : numbers ) {
      while ( count < number ) {
         pcap_pkthdr * header = nullptr;
         unsigned char const * bytes = nullptr;
         auto const result = pcap_next_ex( capture.get(), &header, &bytes );
         if ( result == PCAP_ERROR_BREAK ) {
            reject( file, "no frame " + std::to_string( number ) + "; the file has " +
                             counted( count, "frame" ) );
         }
         if ( result != 1 ) {
            rejectContent( file, *capture );
         }
         if ( ++count == number ) {
            frames[ number ] = frameOf( file, number, *header, bytes );
            bytesRead += header->caplen;
            requireBytes( file, bytesRead );
         }
      }
   }
   return frames;
}

} // namespace

FrameList framesFromFile( std::string_view text, std::string const & directory ) {
   auto const hash = text.rfind( '#' );
   if ( hash == 0 || hash == text.npos ) {
      throw FrameError( "expected a file and frame numbers, such as \"pcap:FILE#1,3-5\"" );
   }
   auto const name = std::string( text.substr( 0, hash ) );
   if ( name.find( '\0' ) != name.npos ) { // the kernel, and what() of an error, would end there
      throw FrameError( "the name of a capture file contains a NUL byte" );
   }
   auto const file = name.starts_with( '/' ) ? name : directory + name;
   auto const numbers = numbersOf( file, text.substr( hash + 1 ) );
   auto sorted = numbers;
   std::sort( sorted.begin(), sorted.end() );
   sorted.erase( std::unique( sorted.begin(), sorted.end() ), sorted.end() );
   auto const found = readFrames( file, sorted );
   FrameList frames;
   std::size_t bytes = 0;
   for ( auto const number : numbers ) {
      bytes += found.at( number ).size();
      requireBytes( file, bytes );
      frames.push_back( found.at( number ) );
   }
   return frames;
}

FrameList allFramesOf( std::string const & file ) {
   auto const capture = openEthernetCapture( file );
   FrameList frames;
   std::size_t bytesRead = 0;
   pcap_pkthdr * header = nullptr;
   unsigned char const * bytes = nullptr;
   int result = 0;
   while ( ( result = pcap_next_ex( capture.get(), &header, &bytes ) ) == 1 ) {
      if ( frames.size() == maxFramesOfText ) {
         rejectCount( file );
      }
      frames.push_back( frameOf( file, frames.size() + 1, *header, bytes ) );
      bytesRead += header->caplen;
      requireBytes( file, bytesRead );
   }
   if ( result != PCAP_ERROR_BREAK ) {
      rejectContent( file, *capture );
   }
   return frames;
}

} // namespace Settings
