#include "valend/shutdown/Journal.h"

#include "settings/Counted.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace Valend {

using Valen::Linux::errorText;
using Valen::Linux::Fd;

namespace {

// The first line of every journal.
constexpr std::string_view header = "valen journal of shutdowns, 1\n";

// The whole file. Nothing, with errno set, when it is not readable, not a regular file or too large.
std::optional< std::string > contentOf( std::string const & path, std::size_t limit ) {
   Fd const fd( ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK ) );
   struct stat status {};
   if ( !fd || ::fstat( fd.get(), &status ) < 0 ) {
      return std::nullopt;
   }
   if ( !S_ISREG( status.st_mode ) || static_cast< std::size_t >( status.st_size ) > limit ) {
      errno = EFBIG;
      return std::nullopt;
   }
   std::string content( static_cast< std::size_t >( status.st_size ), '\0' );
   std::size_t got = 0;
   while ( got < content.size() ) {
      auto const count = ::read( fd.get(), content.data() + got, content.size() - got );
      if ( count < 0 ) {
         return std::nullopt;
      }
      if ( count == 0 ) {
         break;
      }
      got += static_cast< std::size_t >( count );
   }
   content.resize( got );
   return content;
}

} // namespace

// What was read so far, of all files.
struct Journal::Reading {
   std::map< U64, JournalEntry > entries; // the last line of each
   std::vector< U64 > ended;              // in the order of their ends
   bool damaged = false;                  // in any file

   void add( JournalEntry entry ) {
      auto const [ place, added ] = entries.try_emplace( entry.id );
      if ( !added && place->second.phase == Phase::ended ) {
         return; // it was copied into the next file
      }
      if ( entry.phase == Phase::ended ) {
         ended.push_back( entry.id );
      }
      place->second = std::move( entry );
   }

   // Adds the entries in `lines`. Returns how many lines are damaged, one that has no end included.
   std::size_t addLines( std::string_view lines ) {
      std::size_t damagedLines = 0;
      while ( !lines.empty() ) {
         auto const end = lines.find( '\n' );
         auto entry = end == lines.npos ? std::nullopt : entryIn( lines.substr( 0, end ) );
         if ( entry ) {
            add( std::move( *entry ) );
         } else {
            ++damagedLines;
         }
         lines.remove_prefix( end == lines.npos ? lines.size() : end + 1 );
      }
      return damagedLines;
   }
};

Journal::Machine Journal::Machine::real() {
   std::string id;
   std::getline( std::ifstream( "/proc/sys/kernel/random/boot_id" ), id );
   return { id, [] {
              timespec now{};
              ::clock_gettime( CLOCK_BOOTTIME, &now );
              return std::chrono::seconds( now.tv_sec ) + std::chrono::nanoseconds( now.tv_nsec );
           } };
}

Journal::Journal( std::string directory, Machine machine, Conditions & conditions, Damaged damaged )
    : directory_( std::move( directory ) ), machine_( std::move( machine ) ),
      condition_( conditions, "journal" ), damaged_( std::move( damaged ) ) {}

std::string Journal::path( char const * suffix ) const {
   return directory_ + "/shutdowns" + suffix;
}

// --- Reading -------------------------------------------------------------------------------------

Journal::Content Journal::read() {
   Content content;
   if ( !openDirectory() ) {
      return content;
   }
   Reading reading;
   readFile( path( ".1" ), reading );
   readFile( path(), reading );
   std::map< std::string, U64 > newest; // by interface
   for ( auto const & [ id, entry ] : reading.entries ) {
      if ( entry.record.ending != ShutdownRecord::Ending::goodbye ) { // that changes no link
         newest[ entry.record.interface ] = id;
      }
   }
   for ( auto const & [ id, entry ] : reading.entries ) {
      lastId_ = std::max( lastId_, id );
      if ( entry.phase != Phase::ended ) {
         bool const last = newest[ entry.record.interface ] == id;
         ( last ? content.unfinished : content.superseded ).push_back( entry );
         running_[ id ] = lineOf( entry ) + '\n';
      }
   }
   auto & ended = reading.ended;
   ended.erase( ended.begin(), ended.end() - static_cast< std::ptrdiff_t >(
                                                std::min( ended.size(), historyLimit ) ) );
   for ( auto const id : ended ) {
      content.history.push_back( reading.entries.at( id ).record );
   }
   openFile();
   if ( reading.damaged ) {
      copyUndamaged( reading );
   }
   return content;
}

// The damaged file was set aside.
void Journal::copyUndamaged( Reading const & reading ) {
   for ( auto const id : reading.ended ) {
      append( lineOf( reading.entries.at( id ) ) + '\n' );
   }
   for ( auto const & [ id, line ] : running_ ) {
      append( line );
   }
}

bool Journal::openDirectory() {
   if ( lock_ ) {
      return true;
   }
   if ( directory_.empty() ) {
      raise( "no state directory" );
      return false;
   }
   std::error_code code;
   std::filesystem::create_directories( directory_, code );
   Fd directory( ::open( directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC ) );
   if ( !directory ) {
      raise( "cannot open " + directory_ + ": " + ( code ? code.message() : errorText( errno ) ) );
      return false;
   }
   if ( ::flock( directory.get(), LOCK_EX | LOCK_NB ) < 0 ) {
      raise( errno == EWOULDBLOCK ? directory_ + " is used by another valend process"
                                  : "cannot lock " + directory_ + ": " + errorText( errno ) );
      return false;
   }
   lock_ = std::move( directory );
   return true;
}

// A file that does not exist is not an error.
void Journal::readFile( std::string const & path, Reading & reading ) {
   auto const content = contentOf( path, readLimit );
   if ( !content && errno == ENOENT ) {
      return;
   }
   std::string why;
   if ( !content ) {
      why = "cannot read " + path + ": " + errorText( errno );
   } else if ( !content->starts_with( header ) ) {
      why = path + " is not a journal of shutdowns";
   } else if ( auto const lines = reading.addLines( content->substr( header.size() ) ) ) {
      why = path + " has " + Settings::counted( lines, "damaged line" );
   }
   if ( !why.empty() ) {
      reading.damaged = true;
      setAside( path, why );
   }
}

void Journal::setAside( std::string const & path, std::string const & why ) {
   auto const aside = path + ".damaged";
   if ( ::rename( path.c_str(), aside.c_str() ) < 0 ) {
      damaged_( why + "; cannot move it to " + aside + ": " + errorText( errno ) );
   } else {
      damaged_( why + "; moved to " + aside );
   }
}

// --- Writing -------------------------------------------------------------------------------------

void Journal::write( JournalEntry & entry ) noexcept {
   try {
      addLine( entry );
   } catch ( std::exception const & e ) { // out of memory
      raise( std::string( "cannot write " ) + e.what() );
   }
}

void Journal::addLine( JournalEntry & entry ) {
   if ( entry.id == 0 ) {
      auto const now = std::chrono::system_clock::now().time_since_epoch();
      lastId_ = std::max( lastId_ + 1, static_cast< U64 >( now.count() ) );
      entry.id = lastId_;
   }
   entry.bootId = machine_.bootId;
   if ( directory_.empty() ) {
      return;
   }
   auto line = lineOf( entry ) + '\n';
   bool const written = append( line );
   if ( entry.phase == Phase::ended ) {
      running_.erase( entry.id );
   } else {
      running_[ entry.id ] = std::move( line );
   }
   if ( written && bytes_ > fileLimit + 2 * copiedBytes_ ) {
      rotate();
   }
}

// Opens the file, and writes the header of a new one.
bool Journal::openFile() {
   if ( file_ ) {
      return true;
   }
   if ( !openDirectory() ) {
      return false;
   }
   Fd file( ::open( path().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600 ) );
   struct stat status {};
   if ( !file || ::fstat( file.get(), &status ) < 0 ) {
      raise( "cannot open " + path() + ": " + errorText( errno ) );
      return false;
   }
   file_ = std::move( file );
   bytes_ = static_cast< std::size_t >( status.st_size );
   return bytes_ > 0 || append( std::string( header ) );
}

// Adds the whole text to the file, or none of it.
bool Journal::append( std::string const & text ) {
   if ( !openFile() ) {
      return false;
   }
   auto const written = ::write( file_.get(), text.data(), text.size() );
   if ( written == static_cast< ssize_t >( text.size() ) ) {
      bytes_ += text.size();
      condition_.clear();
      return true;
   }
   auto const number = written < 0 ? errno : ENOSPC;
   if ( written > 0 && ::ftruncate( file_.get(), static_cast< off_t >( bytes_ ) ) < 0 ) {
      // A damaged line, which the next start reports.
      [[maybe_unused]] auto const ended = ::write( file_.get(), "\n", 1 );
   }
   file_.close(); // the next line opens it again
   raise( "cannot write " + path() + ": " + errorText( number ) );
   return false;
}

// Begins a new file, with the shutdowns that are running.
void Journal::rotate() {
   if ( ::rename( path().c_str(), path( ".1" ).c_str() ) < 0 ) {
      return raise( "cannot rename " + path() + ": " + errorText( errno ) );
   }
   file_.close();
   for ( auto const & [ id, line ] : running_ ) {
      if ( !append( line ) ) {
         break;
      }
   }
   copiedBytes_ = bytes_;
}

void Journal::raise( std::string const & what ) {
   condition_.raise( what + "; a shutdown in progress would be lost on restart" );
}

} // namespace Valend
