#include "settings/ConfigFiles.h"

#include "settings/Limits.h"
#include "settings/OpenFile.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <poll.h>
#include <system_error>
#include <unistd.h>

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

// All files together.
class Budget {
 public:
   // Throws Unreadable.
   void take( std::size_t bytes ) {
      if ( bytes > left_ ) {
         throw Unreadable{ "exceeds the limit of " + std::to_string( limit_ ) +
                           " bytes, of all files together" };
      }
      left_ -= bytes;
   }
   explicit Budget( std::size_t limit ) : limit_( limit ), left_( limit ) {}

 private:
   std::size_t const limit_;
   std::size_t left_;
};

// All that can be read from the descriptor. `wait` is called before each read. Throws Unreadable.
std::string contentOf( int descriptor, Budget & budget, std::function< void() > const & wait ) {
   std::string text;
   std::vector< char > chunk( 1u << 16 );
   for ( ;; ) {
      wait();
      auto const got = ::read( descriptor, chunk.data(), chunk.size() );
      if ( got == 0 ) {
         return text;
      }
      if ( got < 0 && errno != EINTR && errno != EAGAIN ) {
         throw Unreadable{ "cannot read: " + errnoText( errno ) };
      }
      auto const bytes = got < 0 ? 0 : static_cast< std::size_t >( got );
      budget.take( bytes );
      text.append( chunk.data(), bytes );
   }
}

// Until its end, which must come in time: a pipe may never end.
std::string contentOfStandardInput( Budget & budget ) {
   if ( ::isatty( STDIN_FILENO ) ) {
      throw Unreadable{ "is a terminal; expected a file or a pipe" };
   }
   auto const end = std::chrono::steady_clock::now() + inputTimeout;
   return contentOf( STDIN_FILENO, budget, [ & ] {
      auto const left =
         std::chrono::ceil< std::chrono::milliseconds >( end - std::chrono::steady_clock::now() );
      pollfd waiting{ STDIN_FILENO, POLLIN, 0 };
      if ( left.count() <= 0 || ::poll( &waiting, 1, static_cast< int >( left.count() ) ) == 0 ) {
         throw Unreadable{ "no end of the input after " + std::to_string( inputTimeout.count() ) +
                           " s" };
      }
   } );
}

std::string contentOf( std::string const & file, Budget & budget ) {
   if ( file == "-" ) {
      return contentOfStandardInput( budget );
   }
   try {
      auto const opened = openForReading( file );
      return contentOf( ::fileno( opened.get() ), budget, [] {} );
   } catch ( CannotOpen const & e ) {
      throw Unreadable{ e.text };
   }
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

ConfigText textOf( std::string const & file, Budget & budget ) {
   try {
      return { file, contentOf( file, budget ) };
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
   Budget budget( maxConfigBytes );
   std::vector< ConfigText > texts{ textOf( file, budget ) };
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
      texts.push_back( textOf( path.string(), budget ) );
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
   Budget budget( maxWrittenBytes );
   return parseConfig( { textOf( file, budget ) } );
}

} // namespace Settings
