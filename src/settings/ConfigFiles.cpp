#include "settings/ConfigFiles.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <system_error>

namespace Settings {

namespace {

namespace fs = std::filesystem;

// Why a file or directory was not read.
struct Unreadable {
   std::string text;
};

std::string errnoText( int number ) {
   return std::generic_category().message( number );
}

// All of the stream. Throws Unreadable.
std::string contentOf( std::istream & stream ) {
   std::string text;
   std::vector< char > chunk( 1u << 16 );
   errno = 0;
   while ( stream && text.size() <= maxConfigBytes ) {
      stream.read( chunk.data(), static_cast< std::streamsize >( chunk.size() ) );
      text.append( chunk.data(), static_cast< std::size_t >( stream.gcount() ) );
   }
   if ( text.size() > maxConfigBytes ) {
      throw Unreadable{ "exceeds the limit of " + std::to_string( maxConfigBytes ) + " bytes" };
   }
   if ( stream.bad() || !stream.eof() ) {
      throw Unreadable{ "cannot read: " + errnoText( errno ? errno : EIO ) };
   }
   return text;
}

std::string contentOf( std::string const & file ) {
   if ( file == "-" ) {
      return contentOf( std::cin );
   }
   std::error_code code;
   auto const status = fs::status( file, code );
   if ( fs::is_directory( status ) ) {
      throw Unreadable{ "cannot read: " + errnoText( EISDIR ) };
   }
   if ( fs::is_fifo( status ) ) { // opening it would wait indefinitely
      throw Unreadable{ "cannot read: not a regular file" };
   }
   std::ifstream stream( file, std::ios::binary );
   if ( !stream ) {
      throw Unreadable{ "cannot open: " + errnoText( errno ) };
   }
   return contentOf( stream );
}

bool isDropIn( fs::path const & path ) {
   return path.extension() == ".yaml" && !path.filename().string().starts_with( '.' );
}

// The drop-ins in `directory`, sorted by name; none when it does not exist. Throws Unreadable.
std::vector< std::string > dropInsIn( fs::path const & directory ) {
   std::error_code code;
   std::vector< std::string > files;
   fs::directory_iterator entry( directory, code );
   for ( ; !code && entry != fs::directory_iterator(); entry.increment( code ) ) {
      if ( isDropIn( entry->path() ) ) {
         files.push_back( entry->path().string() );
      }
   }
   if ( code && code != std::errc::no_such_file_or_directory ) {
      throw Unreadable{ "cannot read: " + code.message() + "; expected a directory of drop-ins" };
   }
   std::sort( files.begin(), files.end() );
   return files;
}

ConfigText textOf( std::string const & file ) {
   try {
      return { file, contentOf( file ) };
   } catch ( Unreadable const & e ) {
      return { file, "", e.text };
   }
}

std::vector< ConfigText > textsOf( std::string const & file ) {
   std::vector< ConfigText > texts{ textOf( file ) };
   if ( file == "-" ) {
      return texts;
   }
   auto const directory = fs::path( file ).parent_path() / dropInDirectory;
   try {
      for ( auto const & dropIn : dropInsIn( directory ) ) {
         texts.push_back( textOf( dropIn ) );
      }
   } catch ( Unreadable const & e ) {
      texts.push_back( { directory.string(), "", e.text } );
   }
   return texts;
}

} // namespace

ConfigResult readConfig( std::string const & file ) {
   return parseConfig( textsOf( file ) );
}

} // namespace Settings
