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

constexpr char const * dropInName =
   "the name of a drop-in must end in \".yaml\" and not begin with a dot";

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

// Whether the operator may believe that it is a drop-in: "lldp.yml", "lldp.YAML".
bool looksLikeDropIn( fs::path const & path ) {
   auto extension = path.extension().string();
   for ( auto & character : extension ) {
      character = character >= 'A' && character <= 'Z'
                     ? static_cast< char >( character - 'A' + 'a' )
                     : character;
   }
   return ( extension == ".yml" || extension == ".yaml" ) && !isDropIn( path ) &&
          !path.filename().string().starts_with( '.' );
}

struct DropIns {
   std::vector< fs::path > files;   // sorted by name
   std::vector< fs::path > ignored; // those that look like drop-ins
};

// The drop-ins in `directory`; none when it does not exist. Throws Unreadable.
DropIns dropInsIn( fs::path const & directory ) {
   std::error_code code;
   DropIns found;
   fs::directory_iterator entry( directory, code );
   for ( ; !code && entry != fs::directory_iterator(); entry.increment( code ) ) {
      if ( isDropIn( entry->path() ) ) {
         found.files.push_back( entry->path() );
      } else if ( looksLikeDropIn( entry->path() ) ) {
         found.ignored.push_back( entry->path() );
      }
   }
   if ( code && code != std::errc::no_such_file_or_directory ) {
      throw Unreadable{ "cannot read: " + code.message() + "; expected a directory of drop-ins" };
   }
   std::sort( found.files.begin(), found.files.end() );
   std::sort( found.ignored.begin(), found.ignored.end() );
   return found;
}

ConfigText textOf( std::string const & file ) {
   try {
      return { file, contentOf( file ) };
   } catch ( Unreadable const & e ) {
      return { file, "", e.text };
   }
}

// Adds `file`, in order of names, in place of one of the same name.
void add( std::vector< fs::path > & dropIns, fs::path const & file ) {
   auto const place =
      std::lower_bound( dropIns.begin(), dropIns.end(), file, []( auto const & a, auto const & b ) {
         return a.filename() < b.filename();
      } );
   if ( place != dropIns.end() && place->filename() == file.filename() ) {
      *place = file;
   } else {
      dropIns.insert( place, file );
   }
}

} // namespace

ConfigResult readConfig( std::string const & file, std::string const & dropIn ) {
   std::vector< ConfigText > texts{ textOf( file ) };
   DropIns dropIns;
   if ( file != "-" ) {
      auto const directory = fs::path( file ).parent_path() / dropInDirectory;
      try {
         dropIns = dropInsIn( directory );
      } catch ( Unreadable const & e ) {
         texts.push_back( { directory.string(), "", e.text } );
      }
   }
   if ( !dropIn.empty() ) {
      add( dropIns.files, dropIn );
   }
   for ( auto const & path : dropIns.files ) {
      texts.push_back( textOf( path.string() ) );
   }
   auto result = parseConfig( texts );
   if ( !dropIn.empty() && !isDropIn( dropIn ) ) {
      result.errors.push_back(
         { { dropIn },
           "would be ignored in " + std::string( dropInDirectory ) + "; " + dropInName } );
   }
   for ( auto const & path : dropIns.ignored ) {
      result.warnings.push_back( { { path.string() }, std::string( "ignored; " ) + dropInName } );
   }
   return result;
}

ConfigResult readConfigFile( std::string const & file ) {
   return parseConfig( { textOf( file ) } );
}

} // namespace Settings
