// The files that make up the configuration: which they are, and what they hold.
#include "settings/ConfigReader.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

namespace Settings {

namespace {

namespace fs = std::filesystem;

// Why a file was not read.
struct Unread {
   std::string text;
};

// All that the stream holds. Throws Unread.
std::string contentOf( std::istream & stream ) {
   if ( !stream ) {
      throw Unread{ "cannot be opened; expected a readable file" };
   }
   std::string text;
   std::vector< char > chunk( 1u << 16 );
   while ( stream && text.size() <= maxConfigBytes ) {
      stream.read( chunk.data(), static_cast< std::streamsize >( chunk.size() ) );
      text.append( chunk.data(), static_cast< std::size_t >( stream.gcount() ) );
   }
   if ( stream.bad() || !( stream.eof() || text.size() > maxConfigBytes ) ) {
      throw Unread{ "cannot be read; expected a readable file" };
   }
   if ( text.size() > maxConfigBytes ) {
      throw Unread{ "larger than " + std::to_string( maxConfigBytes ) +
                    " bytes; expected at most that" };
   }
   return text;
}

std::string contentOf( std::string const & file ) {
   if ( file == "-" ) {
      return contentOf( std::cin );
   }
   std::error_code code;
   if ( fs::is_directory( file, code ) || fs::is_fifo( file, code ) ) { // one would wait for ever
      throw Unread{ "cannot be read; expected a readable file" };
   }
   std::ifstream stream( file, std::ios::binary );
   return contentOf( stream );
}

bool isDropIn( fs::path const & path ) {
   return path.extension() == ".yaml" && !path.filename().string().starts_with( '.' );
}

// The drop-ins of `file`, by name; none when there is no such folder. Throws Unread.
std::vector< std::string > dropInsOf( fs::path const & folder ) {
   std::error_code code;
   std::vector< std::string > files;
   fs::directory_iterator entry( folder, code );
   for ( ; !code && entry != fs::directory_iterator(); entry.increment( code ) ) {
      if ( isDropIn( entry->path() ) ) {
         files.push_back( entry->path().string() );
      }
   }
   if ( code && code != std::errc::no_such_file_or_directory ) {
      throw Unread{ "cannot be read: " + code.message() + "; expected a folder of drop-ins" };
   }
   std::sort( files.begin(), files.end() );
   return files;
}

// The texts of a file and its drop-ins.
class Gatherer {
 public:
   explicit Gatherer( std::string const & file ) {
      read( file );
      if ( file == "-" ) {
         return;
      }
      auto const folder = fs::path( file ).parent_path() / dropInFolder;
      try {
         for ( auto const & dropIn : dropInsOf( folder ) ) {
            read( dropIn );
         }
      } catch ( Unread const & e ) {
         texts_.push_back( { folder.string(), "", e.text } );
      }
   }

   std::vector< ConfigText > const & texts() const { return texts_; }

 private:
   void read( std::string const & file ) {
      try {
         texts_.push_back( { file, contentOf( file ) } );
      } catch ( Unread const & e ) {
         texts_.push_back( { file, "", e.text } );
      }
   }

   std::vector< ConfigText > texts_;
};

} // namespace

ConfigResult readConfig( std::string const & file ) {
   return parseConfig( Gatherer( file ).texts() );
}

} // namespace Settings
